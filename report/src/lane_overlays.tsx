// SPDX-License-Identifier: BSD-2-Clause
// Marks over all lanes: where excerpts meet, and the loop.
import type { Stretch } from "./lane_painter";
import type { Timeline } from "./timeline";
import { span, type View } from "./view";

/** More joins than these would cover what they part. */
const kMostJoins = 24;

export function Joins({ timeline, view }: { timeline: Timeline; view: View }) {
  const joins = timeline.joins.filter((at) => at > view.start && at < view.end);
  if (joins.length > kMostJoins) return null;
  const left = (at: number) => `left: ${(100 * (at - view.start)) / span(view)}%`;
  return (
    <>
      {joins.map((at) => (
        <div class="join" key={at} style={left(at)} />
      ))}
    </>
  );
}

export function Region({ view, stretch }: { view: View; stretch: Stretch }) {
  const percent = (seconds: number) => `${(100 * seconds) / span(view)}%`;
  return (
    <div
      class="loop"
      style={`left: ${percent(stretch.start - view.start)}; width: ${percent(stretch.end - stretch.start)}`}
    />
  );
}
