// SPDX-License-Identifier: BSD-2-Clause
// The whole call on one strip: where gaps are, what the lanes show, and the position as a slider.
import { type Ref } from "preact";
import { useEffect, useRef } from "preact/hooks";
import { paintWave, prepare, type Stretch } from "./lane_painter";
import type { Peaks } from "./peaks";
import { colour } from "./theme";
import { span, type View } from "./view";

interface Props {
  peaks: Peaks | undefined;
  rateHz: number;
  duration: number;
  lost: readonly Stretch[];
  view: View | undefined;
  slider: Ref<HTMLDivElement>; // the caller keeps its value, without drawing all this again
  playhead: Ref<HTMLDivElement>;
  dark: boolean;
  onSeek: (seconds: number) => void;
}

export function Overview({ peaks, rateHz, duration, lost, view, slider, playhead, dark, onSeek }: Props) {
  const canvas = useRef<HTMLCanvasElement>(null);
  useEffect(() => {
    const element = canvas.current!;
    const paint = () => paintOverview(element, peaks, rateHz, duration, lost);
    const observer = new ResizeObserver(paint);
    observer.observe(element);
    paint();
    return () => observer.disconnect();
  }, [peaks, duration, lost, dark]);
  const percent = (seconds: number) => `${(100 * seconds) / duration}%`;
  const seek = (event: MouseEvent) => {
    const box = canvas.current!.getBoundingClientRect();
    onSeek(((event.clientX - box.left) / box.width) * duration);
  };
  return (
    <div
      class="overview"
      ref={slider}
      role="slider"
      tabIndex={0}
      aria-label="Position in the call"
      aria-valuemin={0}
      aria-valuemax={Number(duration.toFixed(2))}
      aria-valuenow={0}
      onClick={seek}
    >
      <canvas ref={canvas} />
      {view && span(view) < duration && (
        <div class="window" style={`left: ${percent(view.start)}; width: ${percent(span(view))}`} />
      )}
      <div class="playhead" ref={playhead} />
    </div>
  );
}

function paintOverview(
  canvas: HTMLCanvasElement,
  peaks: Peaks | undefined,
  rateHz: number,
  duration: number,
  lost: readonly Stretch[],
): void {
  const ctx = prepare(canvas);
  const { clientWidth: width, clientHeight: height } = canvas;
  if (peaks)
    paintWave(ctx, peaks, { start: 0, end: duration }, rateHz, {
      width,
      middle: height / 2 + 2,
      scale: (height / 2 - 6) / Math.max(peaks.top, 1e-4),
      colour: colour("--ink-3"),
    });
  ctx.fillStyle = colour("--lost");
  for (const { start, end } of lost) {
    const left = (start / duration) * width;
    ctx.fillRect(left, 0, Math.max(1, ((end - start) / duration) * width), 5);
  }
}
