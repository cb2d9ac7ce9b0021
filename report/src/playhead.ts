// SPDX-License-Identifier: BSD-2-Clause
// The marks of the position in a call.
import { useCallback, useEffect, useLayoutEffect, useRef } from "preact/hooks";
import { clockTime } from "./figures";
import type { Transport } from "./transport";

/** Keeps the playhead, the clock and the slider at the position, without drawing the page again. */
export function usePlayhead(
  transport: Transport,
  duration: number,
  toCall: (seconds: number) => number,
  heard: string | undefined,
  onMove: (seconds: number) => void,
) {
  const lanes = useRef<HTMLDivElement>(null);
  const overview = useRef<HTMLDivElement>(null);
  const slider = useRef<HTMLDivElement>(null);
  const time = useRef<HTMLElement>(null);
  const spoken = useRef(-1);
  const newest = useRef(onMove);
  newest.current = onMove;

  const place = useCallback(() => {
    const at = transport.position;
    if (time.current) time.current.textContent = clockTime(toCall(at));
    if (overview.current) overview.current.style.left = `${(100 * at) / duration}%`;
    const head = lanes.current;
    if (head) {
      const [start, end] = head.dataset["view"]!.split(" ").map(Number) as [number, number];
      head.style.left = `${(100 * (at - start)) / (end - start)}%`;
      head.hidden = at < start || at > end;
    }
    // Once a second is enough for a screen reader while the call plays.
    const now = transport.playing ? Math.floor(at) : at;
    if (slider.current && spoken.current !== now) {
      spoken.current = now;
      slider.current.ariaValueNow = now.toFixed(2);
    }
  }, [transport, duration]);

  useLayoutEffect(() => {
    place();
    if (slider.current)
      slider.current.ariaValueText = `${clockTime(toCall(transport.position))}${heard ? `, ${heard}` : ""}`;
  });
  useEffect(() => {
    if (!transport.playing) return;
    let frame = requestAnimationFrame(function tick() {
      place();
      newest.current(transport.position);
      frame = requestAnimationFrame(tick);
    });
    return () => cancelAnimationFrame(frame);
  }, [transport.playing, place]);
  return { lanes, overview, slider, time };
}
