// SPDX-License-Identifier: BSD-2-Clause
// The gaps of a call: those that can be heard, their order, and the one that is shown and looped.
import { useMemo, useState } from "preact/hooks";
import { announce } from "./announce";
import { clockTime } from "./figures";
import type { GapRanking } from "./gap_list";
import { orderGaps } from "./gap_order";
import type { Stretch } from "./lane_painter";
import type { CallFile, Report } from "./report";
import type { Timeline } from "./timeline";
import type { Transport } from "./transport";
import { around, type View } from "./view";

/** Seconds on either side of a gap: what its loop plays, and what the lanes show. */
export const kLoopMargin = 0.25;
const kViewMargin = 0.4;
/** Seconds of sound that a gap needs on either side to be judged by ear. */
const kContext = 0.2;

/** method: the one to rank by at first. */
export function useGaps(report: Report, file: CallFile, timeline: Timeline, method: string) {
  // Those to choose from, with what lies around them; an excerpt may also cut through a gap, which is marked only.
  const gaps = useMemo(() => file.gaps.filter((gap) => timeline.surrounds(gap, kContext)), [file]);
  const lost = useMemo(() => gaps.map((gap) => timeline.find(gap)!), [gaps]);
  const marked = useMemo(() => file.gaps.flatMap((gap) => timeline.find(gap) ?? []), [file]);
  const measures = useMemo(() => {
    const scored = new Set(file.gaps.flatMap((g) => Object.values(g.scores).flatMap((scores) => Object.keys(scores))));
    return report.measures.filter((m) => scored.has(m.id));
  }, [file]);
  const [ranking, setRanking] = useState<GapRanking>(() => ({ sort: "apart", method, measure: measures[0]?.id ?? "" }));
  const order = useMemo(() => {
    const better = measures.find((m) => m.id === ranking.measure)?.better;
    return orderGaps(gaps, ranking.sort, ranking.method, ranking.measure, better);
  }, [gaps, ranking, measures]);
  return { gaps, lost, marked, measures, ranking, setRanking, order };
}

interface Choice {
  gaps: ReturnType<typeof useGaps>;
  transport: Transport;
  timeline: Timeline;
  frameMs: number;
  duration: number;
  setView: (view: View) => void;
}

export function useChosenGap({ gaps: { gaps, lost, order }, transport, timeline, frameMs, duration, setView }: Choice) {
  const [chosen, setChosen] = useState(order[0]);
  const at = (gap: number) => clockTime(timeline.toCall(lost[gap]!.start));
  const loopOn = (gap: number) => {
    const { start, end } = lost[gap]!;
    transport.setLoop(around(start, end, kLoopMargin, duration));
  };
  const choose = (gap: number) => {
    const { start, end } = lost[gap]!;
    setChosen(gap);
    setView(around(start, end, kViewMargin + (end - start) / 2, duration));
    if (transport.loop) loopOn(gap);
    else transport.seek(timeline.before(start, kLoopMargin));
    announce(`Gap at ${at(gap)}, ${gaps[gap]!.frames * frameMs} ms`);
  };
  const step = (by: number) => {
    if (order.length === 0) return;
    const place = chosen === undefined ? (by > 0 ? -1 : 0) : order.indexOf(chosen);
    choose(order[(place + by + order.length) % order.length]!);
  };
  const toggleLoop = () => {
    if (transport.loop) {
      transport.setLoop(undefined);
      announce("Loop off");
    } else if (lost.length > 0) {
      const gap = chosen ?? nearest(lost, transport.position);
      if (gap !== chosen) choose(gap);
      loopOn(gap);
      announce(`Looping the gap at ${at(gap)}`);
    }
  };
  return { chosen, choose, step, toggleLoop };
}

function nearest(lost: readonly Stretch[], at: number): number {
  const distance = ({ start, end }: Stretch) => Math.max(0, start - at, at - end);
  return lost.reduce((best, stretch, i) => (distance(stretch) < distance(lost[best]!) ? i : best), 0);
}
