// SPDX-License-Identifier: BSD-2-Clause
// The lanes of all methods one above the other, on one axis of time.
import { type ComponentChildren } from "preact";
import { useEffect, useMemo, useRef, useState } from "preact/hooks";
import { clockTime } from "./figures";
import { paintLane, type Stretch } from "./lane_painter";
import { MethodName, methodColour } from "./method_style";
import { useNavigation } from "./navigation";
import { spectrogramPalette } from "./palette";
import type { Decoded } from "./recording";
import { type Method, nameOf } from "./report";
import { type SpectrogramImage, windowFor } from "./spectrogram";
import { SpectrogramService } from "./spectrogram_service";
import { colour } from "./theme";
import type { Timeline } from "./timeline";
import { span, tickStep, type View } from "./view";

interface Props {
  /** Of the whole report: they fix the keys. */
  allMethods: readonly Method[];
  methods: readonly Method[]; // those with a lane
  decoded: Decoded;
  rateHz: number;
  lost: readonly Stretch[];
  view: View;
  timeline: Timeline;
  heard: string;
  dark: boolean;
  onView: (view: View) => void;
  onSeek: (seconds: number) => void;
  onHear: (method: string) => void;
  children: ComponentChildren; // what lies over all lanes
}

export function Lanes(props: Props) {
  const { methods, decoded, rateHz, view, timeline, dark } = props;
  const field = useRef<HTMLDivElement>(null);
  const width = useWidth(field);
  const images = useSpectrograms(decoded, rateHz, view, width);
  const top = Math.max(...[...decoded.recordings.values()].map((r) => r.peaks.top));
  const gain = magnification(decoded, rateHz, view, top);
  const palette = useMemo(() => spectrogramPalette(dark), [dark]);
  useNavigation(field, { view, duration: decoded.duration, onView: props.onView, onSeek: props.onSeek });
  return (
    <div class="lanes" role="group" aria-label="Waveforms and spectrograms">
      <TimeAxis {...{ view, timeline, width }} />
      {methods.map((method) => {
        const recording = decoded.recordings.get(method.id);
        return (
          <div class={`lane ${method.id === props.heard ? "heard" : ""}`} key={method.id}>
            <div class="lane-label" onClick={() => props.onHear(method.id)}>
              <MethodName methods={props.allMethods} id={method.id} />
              <small aria-hidden="true">
                {gain > 1 && `× ${gain}, `}0 – {rateHz / 2000} kHz
              </small>
            </div>
            {recording ? (
              <Lane
                label={`${nameOf(method)}: waveform and spectrogram from ${clockTime(timeline.toCall(view.start))} to ${clockTime(timeline.toCall(view.end))}`}
                paint={(canvas) =>
                  paintLane(canvas, {
                    view,
                    rateHz,
                    peaks: recording.peaks,
                    top: top / gain,
                    lost: props.lost,
                    image: images.get(method.id),
                    colours: {
                      wave: colour(methodColour(props.allMethods, method.id)),
                      lost: colour("--lost"),
                      line: colour("--line"),
                      spectrogram: palette,
                    },
                  })
                }
              />
            ) : (
              <p class="nothing">{decoded.failures.get(method.id) ?? "no recording of this method in the report"}</p>
            )}
          </div>
        );
      })}
      <div class="lane-field" ref={field}>
        {props.children}
      </div>
    </div>
  );
}

/** By how much all waveforms are drawn higher, so that quiet places show their shape too: 1, 2, 4 or 8. */
function magnification(decoded: Decoded, rateHz: number, view: View, top: number): number {
  const visible = [...decoded.recordings.values()].map(({ peaks }) => {
    const [low, high] = peaks.range(view.start * rateHz, view.end * rateHz);
    return Math.max(-low, high);
  });
  return [8, 4, 2].find((gain) => gain * Math.max(...visible) <= top) ?? 1;
}

function Lane({ label, paint }: { label: string; paint: (canvas: HTMLCanvasElement) => void }) {
  const canvas = useRef<HTMLCanvasElement>(null);
  useEffect(() => {
    const frame = requestAnimationFrame(() => canvas.current && paint(canvas.current));
    return () => cancelAnimationFrame(frame);
  });
  return <canvas ref={canvas} role="img" aria-label={label} />;
}

function useWidth(ref: { current: HTMLElement | null }): number {
  const [width, setWidth] = useState(0);
  useEffect(() => {
    const element = ref.current!;
    const observer = new ResizeObserver(() => setWidth(element.clientWidth));
    observer.observe(element);
    return () => observer.disconnect();
  }, []);
  return width;
}

/** The newest image of each lane; asks for new ones when the view or the width changes. */
function useSpectrograms(decoded: Decoded, rateHz: number, view: View, width: number): Map<string, SpectrogramImage> {
  const [images, setImages] = useState<Map<string, SpectrogramImage>>(new Map());
  const service = useMemo(
    () => new SpectrogramService((image) => setImages((old) => new Map(old).set(image.request.lane, image))),
    [decoded],
  );
  useEffect(() => {
    setImages(new Map());
    for (const [lane, { peaks }] of decoded.recordings) service.load(lane, peaks.pcm);
    return () => service.close();
  }, [service]);

  const top = Math.max(1e-4, ...[...decoded.recordings.values()].map((r) => r.peaks.top));
  useEffect(() => {
    if (width === 0) return;
    for (const lane of decoded.recordings.keys())
      service.request({
        lane,
        from: view.start * rateHz,
        to: view.end * rateHz,
        columns: Math.ceil(width),
        window: windowFor(rateHz, span(view)),
        topDb: 20 * Math.log10(top) - 14, // a voice's strongest harmonic lies about that far below its peaks
      });
  }, [service, view.start, view.end, width]);
  return images;
}

function TimeAxis({ view, timeline, width }: { view: View; timeline: Timeline; width: number }) {
  const step = tickStep(span(view), width / 90);
  const decimals = Math.max(0, -Math.floor(Math.log10(step) + 1e-9));
  const room = 0.06 * span(view); // of the figures themselves
  const marks: { at: number; call: number }[] = [];
  for (const tick of timeline.ticks({ start: view.start, end: view.end - room }, step))
    if (marks.length === 0 || tick.at - marks.at(-1)!.at >= room) marks.push(tick);
  return (
    <div class="time-axis" aria-hidden="true">
      {marks.map(({ at, call }) => (
        <span key={call.toFixed(4)} style={`left: ${(100 * (at - view.start)) / span(view)}%`}>
          {clockTime(call, decimals)}
        </span>
      ))}
    </div>
  );
}
