// SPDX-License-Identifier: BSD-2-Clause
// One call: player, lanes and gaps, or the blind test in their place.
import { useEffect, useRef, useState } from "preact/hooks";
import { announce } from "./announce";
import { BlindTest } from "./blind_test";
import { kLoopMargin, useChosenGap, useGaps } from "./call_gaps";
import { useCallView } from "./call_view";
import { GapList } from "./gap_list";
import { Joins, Region } from "./lane_overlays";
import { Lanes } from "./lanes";
import { Overview } from "./overview";
import { usePlayback, useTransport } from "./playback";
import { PlayerBar } from "./player_bar";
import { usePlayhead } from "./playhead";
import type { Decoded } from "./recording";
import { type CallFile, isReference, type Method, nameOf, type Report } from "./report";
import { keepFocus, type Shortcuts, useShortcuts } from "./shortcuts";
import type { Timeline } from "./timeline";

/** Seconds played before the first gap when a call is opened. */
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
  const [method, setMethod] = useState(() => preferred(audible));
  const [blind, setBlind] = useState(false);
  const gaps = useGaps(report, file, timeline, method);
  const opening = gaps.lost[gaps.order[0] ?? -1];
  const transport = useTransport(rateHz, decoded, opening && timeline.before(opening.start, kOpeningLead));
  useEffect(() => transport.select(method), [method, blind]);
  const call = useCallView(transport, duration, opening);
  const { view } = call;
  const gap = useChosenGap({ gaps, transport, timeline, frameMs, duration, setView: call.setView });
  const toCall = (seconds: number) => timeline.toCall(seconds);
  const playback = usePlayback(transport, toCall, blind ? undefined : call.centre);
  const heard = blind ? undefined : nameOf(methods.find((m) => m.id === method) ?? { id: method });
  const marks = usePlayhead(transport, duration, toCall, heard, call.follow);
  const player = useRef<HTMLDivElement>(null);

  const hear = (id: string) => {
    setMethod(id);
    announce(`Hearing ${nameOf(methods.find((m) => m.id === id)!)}`);
  };
  const whole = () => {
    call.showAll();
    announce(file.excerpts ? "Showing all excerpts" : "Showing the whole call");
  };

  const playing: Shortcuts = {
    " ": () => {
      reveal(player.current!);
      playback.toggle();
    },
    ArrowLeft: (event) => playback.step(event.shiftKey ? -frameMs / 1000 : -1),
    ArrowRight: (event) => playback.step(event.shiftKey ? frameMs / 1000 : 1),
    Home: () => playback.jump(0),
    End: () => playback.jump(duration),
  };
  const keyOf = ({ id }: Method) => String(report.methods.findIndex((m) => m.id === id) + 1);
  const looking: Shortcuts = {
    "+": () => call.zoom(0.5),
    "=": () => call.zoom(0.5),
    "-": () => call.zoom(2),
    "0": whole,
    n: () => gap.step(1),
    p: () => gap.step(-1),
    l: gap.toggleLoop,
    ...Object.fromEntries(audible.map((m) => [keyOf(m), () => hear(m.id)])),
  };
  useShortcuts(blind ? playing : { ...playing, ...looking });

  const reference = decoded.recordings.get(audible.find(isReference)?.id ?? audible[0]?.id ?? "");
  const overview = (
    <Overview
      peaks={blind ? undefined : reference?.peaks}
      view={blind ? undefined : view}
      {...{ rateHz, duration, dark }}
      lost={gaps.marked}
      slider={marks.slider}
      playhead={marks.overview}
      onSeek={blind ? (at) => transport.seek(at) : playback.seek}
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
        onToggle={playback.toggle}
        onHear={hear}
        onZoom={call.zoom}
        onWhole={whole}
        onStepGap={gap.step}
        onLoop={gap.toggleLoop}
        onBlind={() => setBlind(true)}
      />
      {blind ? (
        <>
          {overview}
          <BlindTest
            {...{ transport, duration, view, toCall }}
            gaps={gaps.gaps}
            lost={gaps.lost}
            recordings={decoded.recordings}
            methods={audible}
            measure={gaps.ranking.measure}
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
              lost={gaps.marked}
              methods={methods}
              allMethods={report.methods}
              heard={method}
              onView={call.setView}
              onSeek={playback.seek}
              onHear={hear}
            >
              <Joins {...{ timeline, view }} />
              {transport.loop && <Region view={view} stretch={transport.loop} />}
              <div class="playhead" ref={marks.lanes} data-view={`${view.start} ${view.end}`} />
            </Lanes>
          </div>
          <div {...keepFocus}>
            <GapList
              frameMs={frameMs}
              gaps={gaps.gaps}
              order={gaps.order}
              measures={gaps.measures}
              ranking={gaps.ranking}
              chosen={gap.chosen}
              all={file.gaps.length}
              methods={report.methods}
              onRank={gaps.setRanking}
              onChoose={gap.choose}
            />
          </div>
        </div>
      )}
    </div>
  );
}

const preferred = (methods: readonly Method[]): string =>
  (methods.find((m) => m.id === "aiplc") ?? methods.find((m) => !isReference(m)) ?? methods[0])?.id ?? "";

/** Scrolls to the player where it is not on the screen. */
function reveal(player: HTMLElement): void {
  const { top, bottom } = player.getBoundingClientRect();
  if (bottom < kInSight || top > innerHeight - kInSight) player.scrollIntoView({ block: "start" });
}
const kInSight = 160; // pixels
