// SPDX-License-Identifier: BSD-2-Clause
// One call: player, lanes and gaps, or the blind test in their place.
import { useCallback, useEffect, useLayoutEffect, useMemo, useReducer, useRef, useState } from "preact/hooks";
import { announce } from "./announce";
import { BlindTest } from "./blind_test";
import { clockTime, withUnit } from "./figures";
import { GapList, type GapRanking } from "./gap_list";
import { orderGaps } from "./gap_order";
import type { Stretch } from "./lane_painter";
import { Lanes } from "./lanes";
import { Overview } from "./overview";
import { PlayerBar } from "./player_bar";
import type { Decoded } from "./recording";
import { type CallFile, isReference, type Method, nameOf, type Report } from "./report";
import { keepFocus, type Shortcuts, useShortcuts } from "./shortcuts";
import type { Timeline } from "./timeline";
import { Transport } from "./transport";
import { around, fit, shift, span, type View, zoomAbout } from "./view";

/** Seconds on either side of a gap: what its loop plays, and what the lanes show. */
const kLoopMargin = 0.25;
const kViewMargin = 0.4;
/** Seconds of sound that a gap needs on either side to be judged by ear. */
const kContext = 0.2;
/** Seconds shown on either side of the first gap when a call is opened, and played before it. */
const kOpeningMargin = 2;
const kOpeningLead = 1;

interface Props {
  report: Report;
  file: CallFile;
  timeline: Timeline;
  decoded: Decoded;
  dark: boolean;
}

export function CallPlayer({ report, file, timeline, decoded, dark }: Props) {
  const { rateHz, frameMs } = report;
  const { duration } = decoded;
  const methods = report.methods.filter((m) => file.audio?.[m.id] !== undefined);
  const audible = methods.filter((m) => decoded.recordings.has(m.id));
  // Those to choose from, with what lies around them; an excerpt may also cut through a gap, which is marked only.
  const gaps = useMemo(() => file.gaps.filter((gap) => timeline.surrounds(gap, kContext)), [file]);
  const lost = useMemo(() => gaps.map((gap) => timeline.find(gap)!), [gaps]);
  const marked = useMemo(() => file.gaps.flatMap((gap) => timeline.find(gap) ?? []), [file]);
  const [method, setMethod] = useState(() => preferred(audible));
  const [blind, setBlind] = useState(false);
  const [ranking, setRanking] = useRanking(report, file, method);
  const measures = useScoredMeasures(report, file);
  const order = useMemo(
    () =>
      orderGaps(gaps, ranking.sort, ranking.method, ranking.measure, measures.find((m) => m.id === ranking.measure)?.better),
    [gaps, ranking, measures],
  );
  const opening = lost[order[0] ?? -1];
  const transport = useTransport(rateHz, decoded, opening && timeline.before(opening.start, kOpeningLead));
  const [chosen, setChosen] = useState(order[0]);
  const [view, setView] = useState<View>(() =>
    opening ? around(opening.start, opening.end, kOpeningMargin, duration) : { start: 0, end: duration },
  );
  const player = useRef<HTMLDivElement>(null);
  useEffect(() => transport.select(method), [method, blind]);
  const toCall = (seconds: number) => timeline.toCall(seconds);
  const marks = usePlayhead(transport, duration, toCall, blind ? undefined : nameOf(methods.find((m) => m.id === method) ?? { id: method }), (at) => {
    if (!transport.loop && (at < view.start || at > view.end))
      setView(shift(view, at - view.start - 0.05 * span(view), duration));
  });

  const hear = (id: string) => {
    setMethod(id);
    announce(`Hearing ${nameOf(methods.find((m) => m.id === id)!)}`);
  };
  const toggle = () => {
    if (transport.playing) {
      transport.pause();
      announce(`Paused at ${clockTime(toCall(transport.position))}`);
    } else {
      void transport.play();
      announce("Playing");
    }
  };
  /** Within a loop, stays in it. The view follows; in the blind test it is what the listener chose before. */
  const jump = (seconds: number) => {
    transport.seek(seconds);
    const at = transport.position;
    if (!blind && (at < view.start || at > view.end)) setView(shift(view, at - (view.start + view.end) / 2, duration));
  };
  const seek = (seconds: number) => {
    const loop = transport.loop;
    if (loop && (seconds < loop.start || seconds > loop.end)) transport.setLoop(undefined);
    jump(seconds);
  };
  const step = (seconds: number) => jump(transport.position + seconds);
  const zoom = (factor: number) => {
    const at = transport.position;
    const inside = at >= view.start && at <= view.end;
    const next = zoomAbout(view, inside ? at : (view.start + view.end) / 2, factor, duration);
    setView(next);
    announce(`Showing ${withUnit(span(next).toPrecision(2), "seconds")}`);
  };
  const whole = () => {
    setView(fit({ start: 0, end: duration }, duration));
    announce(file.excerpts ? "Showing all excerpts" : "Showing the whole call");
  };
  const loopOn = (gap: number | undefined) => {
    const stretch = gap === undefined ? undefined : lost[gap]!;
    transport.setLoop(stretch && around(stretch.start, stretch.end, kLoopMargin, duration));
  };
  const choose = (gap: number) => {
    const { start, end } = lost[gap]!;
    setChosen(gap);
    setView(around(start, end, kViewMargin + (end - start) / 2, duration));
    if (transport.loop) loopOn(gap);
    else transport.seek(timeline.before(start, kLoopMargin));
    announce(`Gap at ${clockTime(toCall(start))}, ${gaps[gap]!.frames * frameMs} ms`);
  };
  const toggleLoop = () => {
    if (transport.loop) {
      loopOn(undefined);
      announce("Loop off");
    } else if (lost.length > 0) {
      const gap = chosen ?? nearest(lost, transport.position);
      if (gap !== chosen) choose(gap);
      loopOn(gap);
      announce(`Looping the gap at ${clockTime(toCall(lost[gap]!.start))}`);
    }
  };
  const stepGap = (by: number) => {
    if (order.length === 0) return;
    const at = chosen === undefined ? (by > 0 ? -1 : 0) : order.indexOf(chosen);
    choose(order[(at + by + order.length) % order.length]!);
  };

  const playing: Shortcuts = {
    " ": () => {
      reveal(player.current!);
      toggle();
    },
    ArrowLeft: (event) => step(event.shiftKey ? -frameMs / 1000 : -1),
    ArrowRight: (event) => step(event.shiftKey ? frameMs / 1000 : 1),
    Home: () => jump(0),
    End: () => jump(duration),
  };
  const looking: Shortcuts = {
    "+": () => zoom(0.5),
    "=": () => zoom(0.5),
    "-": () => zoom(2),
    "0": whole,
    n: () => stepGap(1),
    p: () => stepGap(-1),
    l: toggleLoop,
    ...Object.fromEntries(audible.map(({ id }) => [String(report.methods.findIndex((m) => m.id === id) + 1), () => hear(id)])),
  };
  useShortcuts(blind ? playing : { ...playing, ...looking });

  const reference = decoded.recordings.get(audible.find(isReference)?.id ?? audible[0]?.id ?? "");
  const overview = (
    <Overview
      peaks={blind ? undefined : reference?.peaks}
      view={blind ? undefined : view}
      {...{ rateHz, duration, dark }}
      lost={marked}
      slider={marks.slider}
      playhead={marks.overview}
      onSeek={blind ? (at) => transport.seek(at) : seek}
    />
  );
  return (
    <div class={`player ${blind ? "blind" : ""}`} ref={player} tabIndex={-1}>
      <PlayerBar
        {...{ methods, audible, method, blind }}
        duration={(file.frames * frameMs) / 1000}
        whole={file.excerpts ? "All excerpts" : "Whole call"}
        allMethods={report.methods}
        playing={transport.playing}
        looping={transport.loop !== undefined}
        time={marks.time}
        onToggle={toggle}
        onHear={hear}
        onZoom={zoom}
        onWhole={whole}
        onStepGap={stepGap}
        onLoop={toggleLoop}
        onBlind={() => setBlind(true)}
      />
      {blind ? (
        <>
          {overview}
          <BlindTest
            {...{ gaps, lost, transport, duration, view, toCall }}
            recordings={decoded.recordings}
            methods={audible}
            measure={ranking.measure}
            margin={kLoopMargin}
            onLeave={() => {
              setBlind(false);
              player.current!.focus({ preventScroll: true });
            }}
          />
        </>
      ) : (
        <div class="call">
          <div>
            {overview}
            <Lanes
              {...{ decoded, rateHz, view, timeline, dark }}
              lost={marked}
              methods={methods}
              allMethods={report.methods}
              heard={method}
              onView={setView}
              onSeek={seek}
              onHear={hear}
            >
              <Joins {...{ timeline, view }} />
              {transport.loop && <Region view={view} stretch={transport.loop} />}
              <div class="playhead" ref={marks.lanes} data-view={`${view.start} ${view.end}`} />
            </Lanes>
          </div>
          <div {...keepFocus}>
            <GapList
              {...{ gaps, order, measures, frameMs, ranking, chosen }}
              all={file.gaps.length}
              methods={report.methods}
              onRank={setRanking}
              onChoose={choose}
            />
          </div>
        </div>
      )}
    </div>
  );
}

const preferred = (methods: readonly Method[]): string =>
  (methods.find((m) => m.id === "aiplc") ?? methods.find((m) => !isReference(m)) ?? methods[0])?.id ?? "";

function nearest(lost: readonly Stretch[], at: number): number {
  const distance = ({ start, end }: Stretch) => Math.max(0, start - at, at - end);
  return lost.reduce((best, stretch, i) => (distance(stretch) < distance(lost[best]!) ? i : best), 0);
}

/** Scrolls to the player where it is not on the screen. */
function reveal(player: HTMLElement): void {
  const { top, bottom } = player.getBoundingClientRect();
  if (bottom < kInSight || top > innerHeight - kInSight) player.scrollIntoView({ block: "start" });
}
const kInSight = 160; // pixels

/** startAt: seconds into the call at which the first play begins. */
function useTransport(rateHz: number, decoded: Decoded, startAt = 0): Transport {
  const [, redraw] = useReducer((n: number) => n + 1, 0);
  const transport = useMemo(() => new Transport(rateHz), []);
  useLayoutEffect(() => {
    transport.onChange = () => redraw(undefined);
    transport.load(new Map([...decoded.recordings].map(([id, { buffer }]) => [id, buffer])), decoded.duration);
    transport.seek(startAt);
    return () => {
      transport.onChange = () => {};
      transport.close();
    };
  }, [decoded]);
  return transport;
}

function useScoredMeasures(report: Report, file: CallFile) {
  return useMemo(() => {
    const scored = new Set(file.gaps.flatMap((g) => Object.values(g.scores).flatMap((scores) => Object.keys(scores))));
    return report.measures.filter((m) => scored.has(m.id));
  }, [file]);
}

function useRanking(report: Report, file: CallFile, method: string) {
  const measures = useScoredMeasures(report, file);
  return useState<GapRanking>(() => ({ sort: "apart", method, measure: measures[0]?.id ?? "" }));
}

/** Keeps the playhead, the clock and the slider at the position, without drawing the page again. */
function usePlayhead(
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

/** More joins than these would cover what they part. */
const kMostJoins = 24;

function Joins({ timeline, view }: { timeline: Timeline; view: View }) {
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

function Region({ view, stretch }: { view: View; stretch: Stretch }) {
  const percent = (seconds: number) => `${(100 * seconds) / span(view)}%`;
  return (
    <div class="loop" style={`left: ${percent(stretch.start - view.start)}; width: ${percent(stretch.end - stretch.start)}`} />
  );
}
