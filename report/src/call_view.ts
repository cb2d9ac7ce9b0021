// SPDX-License-Identifier: BSD-2-Clause
// The part of a call that the lanes show.
import { useState } from "preact/hooks";
import { announce } from "./announce";
import { withUnit } from "./figures";
import type { Stretch } from "./lane_painter";
import type { Transport } from "./transport";
import { around, fit, shift, span, type View, zoomAbout } from "./view";

/** Seconds shown on either side of the first gap when a call is opened. */
const kOpeningMargin = 2;

/** opening: the gap to begin at; the whole call is shown where there is none. */
export function useCallView(transport: Transport, duration: number, opening: Stretch | undefined) {
  const [view, setView] = useState<View>(() =>
    opening ? around(opening.start, opening.end, kOpeningMargin, duration) : { start: 0, end: duration },
  );
  const inside = (at: number) => at >= view.start && at <= view.end;
  /** Turns the page when the playing leaves the view; a loop may lie outside of it. */
  const follow = (at: number) => {
    if (!transport.loop && !inside(at)) setView(shift(view, at - view.start - 0.05 * span(view), duration));
  };
  const centre = (at: number) => {
    if (!inside(at)) setView(shift(view, at - (view.start + view.end) / 2, duration));
  };
  const zoom = (factor: number) => {
    const at = transport.position;
    const next = zoomAbout(view, inside(at) ? at : (view.start + view.end) / 2, factor, duration);
    setView(next);
    announce(`Showing ${withUnit(span(next).toPrecision(2), "seconds")}`);
  };
  const showAll = () => setView(fit({ start: 0, end: duration }, duration));
  return { view, setView, follow, centre, zoom, showAll };
}
