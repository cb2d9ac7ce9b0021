// SPDX-License-Identifier: BSD-2-Clause
// Draws one lane: the waveform above, the spectrogram below, the lost frames over both.
import type { Peaks } from "./peaks";
import type { SpectrogramImage } from "./spectrogram";
import { span, type View } from "./view";

/** Share of the lane's height that the waveform takes. */
const kWaveShare = 0.38;

export interface Stretch {
  readonly start: number; // seconds
  readonly end: number;
}

export interface LaneColours {
  readonly wave: string;
  readonly lost: string;
  readonly line: string;
  readonly spectrogram: Uint8ClampedArray;
}

export interface LanePicture {
  readonly view: View;
  readonly rateHz: number;
  readonly peaks: Peaks;
  /** The sample magnitude that fills the waveform's height; the same in all lanes. */
  readonly top: number;
  readonly lost: readonly Stretch[];
  readonly image: SpectrogramImage | undefined;
  readonly colours: LaneColours;
}

/** Matches the canvas to its size on the screen; the context then draws in CSS pixels. */
export function prepare(canvas: HTMLCanvasElement): CanvasRenderingContext2D {
  const ratio = devicePixelRatio || 1;
  const width = Math.max(1, Math.round(canvas.clientWidth * ratio));
  const height = Math.max(1, Math.round(canvas.clientHeight * ratio));
  if (canvas.width !== width) canvas.width = width;
  if (canvas.height !== height) canvas.height = height;
  const ctx = canvas.getContext("2d")!;
  ctx.setTransform(ratio, 0, 0, ratio, 0, 0);
  ctx.clearRect(0, 0, canvas.clientWidth, canvas.clientHeight);
  return ctx;
}

export function paintLane(canvas: HTMLCanvasElement, picture: LanePicture): void {
  const ctx = prepare(canvas);
  const { clientWidth: width, clientHeight: height } = canvas;
  const waveHeight = Math.round(height * kWaveShare);
  const toX = (seconds: number) => ((seconds - picture.view.start) / span(picture.view)) * width;
  ctx.fillStyle = `rgb(${picture.colours.spectrogram.slice(0, 3).join()})`;
  ctx.fillRect(0, waveHeight, width, height - waveHeight);
  if (picture.image) paintSpectrogram(ctx, picture, toX, waveHeight, height - waveHeight);
  ctx.fillStyle = picture.colours.line;
  ctx.fillRect(0, waveHeight / 2, width, 1);
  paintWave(ctx, picture.peaks, picture.view, picture.rateHz, {
    width,
    middle: waveHeight / 2,
    scale: (waveHeight / 2 - 3) / Math.max(picture.top, 1e-4),
    colour: picture.colours.wave,
  });
  paintLost(ctx, picture, toX, waveHeight, width, height);
}

interface WaveBox {
  width: number;
  middle: number;
  scale: number; // pixels per unit of the samples
  colour: string;
}

export function paintWave(ctx: CanvasRenderingContext2D, peaks: Peaks, view: View, rateHz: number, box: WaveBox): void {
  const perPixel = (span(view) * rateHz) / box.width;
  const from = view.start * rateHz;
  ctx.beginPath();
  if (perPixel < 2) {
    for (let i = Math.floor(from); i <= from + perPixel * box.width + 1; ++i)
      ctx.lineTo((i - from) / perPixel, box.middle - box.scale * (peaks.pcm[i] ?? 0));
    ctx.strokeStyle = box.colour;
    ctx.lineWidth = 1.25;
    ctx.stroke();
    return;
  }
  for (let x = 0; x < box.width; x += 0.5) {
    const [low, high] = peaks.range(from + x * perPixel, from + (x + 0.5) * perPixel);
    const y = box.middle - box.scale * high;
    ctx.rect(x, y - 0.35, 0.5, box.scale * (high - low) + 0.7);
  }
  ctx.fillStyle = box.colour;
  ctx.fill();
}

function paintSpectrogram(
  ctx: CanvasRenderingContext2D,
  { image, rateHz, colours }: LanePicture,
  toX: (seconds: number) => number,
  y: number,
  height: number,
): void {
  const { request } = image!;
  const left = toX(request.from / rateHz);
  const right = toX(request.to / rateHz);
  ctx.imageSmoothingEnabled = true;
  ctx.drawImage(tinted(image!, colours.spectrogram), left, y, right - left, height);
}

const scratch = new WeakMap<SpectrogramImage, { canvas: HTMLCanvasElement; palette: Uint8ClampedArray }>();

/** The image in the colours of the palette, low frequencies at the bottom. */
function tinted(image: SpectrogramImage, palette: Uint8ClampedArray): HTMLCanvasElement {
  const kept = scratch.get(image);
  if (kept?.palette === palette) return kept.canvas;
  const { columns } = image.request;
  const canvas = document.createElement("canvas");
  canvas.width = columns;
  canvas.height = image.bins;
  const pixels = new ImageData(columns, image.bins);
  const words = new Uint32Array(pixels.data.buffer);
  const shades = new Uint32Array(palette.buffer);
  for (let column = 0; column < columns; ++column)
    for (let bin = 0; bin < image.bins; ++bin)
      words[(image.bins - 1 - bin) * columns + column] = shades[image.levels[column * image.bins + bin]!]!;
  canvas.getContext("2d")!.putImageData(pixels, 0, 0);
  scratch.set(image, { canvas, palette });
  return canvas;
}

/** A bar on top of what was lost, a veil over its waveform, and fine lines at its ends in the spectrogram. */
function paintLost(
  ctx: CanvasRenderingContext2D,
  { lost, view, colours }: LanePicture,
  toX: (seconds: number) => number,
  waveHeight: number,
  width: number,
  height: number,
): void {
  ctx.fillStyle = colours.lost;
  for (const { start, end } of lost) {
    if (end <= view.start || start >= view.end) continue;
    const left = Math.max(-1, toX(start));
    const right = Math.min(width + 1, Math.max(toX(end), left + 1));
    ctx.fillRect(left, 0, right - left, 3);
    ctx.globalAlpha = 0.16;
    ctx.fillRect(left, 3, right - left, waveHeight - 3);
    if (right - left >= 6) {
      ctx.globalAlpha = 0.8;
      ctx.fillRect(left, waveHeight, 1, height - waveHeight);
      ctx.fillRect(right - 1, waveHeight, 1, height - waveHeight);
    }
    ctx.globalAlpha = 1;
  }
}
