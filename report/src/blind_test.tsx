// SPDX-License-Identifier: BSD-2-Clause
// A/B/X: two methods behind the letters A and B, one of them behind X. The listener says which one X is, and which one
// sounds better.
import { useEffect, useLayoutEffect, useRef, useState } from "preact/hooks";
import { announce } from "./announce";
import { type Answer, drawTrials, identical, type Letter, type Trial } from "./blind_plan";
import { BlindResult } from "./blind_result";
import { orderByDifference } from "./gap_order";
import type { Stretch } from "./lane_painter";
import type { Recording } from "./recording";
import { type Gap, isReference, type Method, nameOf } from "./report";
import { Select } from "./select";
import { keepFocus, useShortcuts } from "./shortcuts";
import type { Transport } from "./transport";
import { around, type View } from "./view";

interface Props {
  gaps: readonly Gap[];
  lost: readonly Stretch[]; // of the gaps
  methods: readonly Method[]; // those with a recording
  recordings: ReadonlyMap<string, Recording>;
  measure: string;
  margin: number; // seconds played around a gap
  transport: Transport;
  duration: number;
  view: View;
  toCall: (seconds: number) => number;
  onLeave: () => void;
}

export function BlindTest(props: Props) {
  const { transport, onLeave } = props;
  const [trials, setTrials] = useState<readonly Trial[]>();
  const [answers, setAnswers] = useState<readonly Answer[]>([]);
  const [stopped, setStopped] = useState(false);
  const begin = (next: readonly Trial[] | undefined) => {
    setTrials(next);
    setAnswers([]);
    setStopped(false);
  };
  useEffect(() => {
    transport.pause();
    return () => {
      transport.pause();
      transport.setLoop(undefined);
    };
  }, []);
  const done = trials && (stopped || answers.length === trials.length);
  useEffect(() => {
    if (done) transport.pause();
  }, [done]);
  // A button that ends a stage or a trial goes with it: the focus moves to the heading of the next one.
  const section = useRef<HTMLElement>(null);
  const stage = !trials ? "setup" : done ? "result" : "listening";
  useLayoutEffect(() => {
    if (document.activeElement === document.body) section.current!.querySelector("h3")?.focus({ preventScroll: true });
  }, [stage, answers.length]);
  return (
    <section class="blind-test" aria-label="Blind test" ref={section}>
      {!trials && <Setup {...props} onBegin={begin} />}
      {trials && !done && (
        <Listening
          trials={trials}
          number={answers.length}
          transport={transport}
          onAnswer={(answer) => setAnswers([...answers, answer])}
          onStop={() => setStopped(true)}
        />
      )}
      {trials && done && (
        <BlindResult {...{ trials, answers }} toCall={props.toCall} onAgain={() => begin(undefined)} />
      )}
      <button type="button" onClick={onLeave}>
        Leave the blind test
      </button>
    </section>
  );
}

const kPlaces = [
  { id: "gaps", name: "gaps where the two measure most apart" },
  { id: "view", name: "the part of the call shown before" },
];
const kTrials = [8, 12, 16, 24].map((n) => ({ id: String(n) }));

function Setup(props: Props & { onBegin: (trials: readonly Trial[]) => void }) {
  const { methods, gaps, lost, recordings, measure, margin, transport, duration, view } = props;
  const contenders = methods.filter((m) => !isReference(m));
  const [first, setFirst] = useState((contenders.find((m) => m.id === "aiplc") ?? methods[0]!).id);
  const [second, setSecond] = useState(
    (methods.find((m) => m.id === "codec" && m.id !== first) ?? methods.find((m) => m.id !== first)!).id,
  );
  const [count, setCount] = useState("12");
  const [where, setWhere] = useState(lost.length > 0 ? "gaps" : "view");
  const [one, two] = [first, second].map((id) => methods.find((m) => m.id === id)!) as [Method, Method];
  const places =
    where === "gaps"
      ? orderByDifference(gaps, first, second, measure).map((gap) =>
          around(lost[gap]!.start, lost[gap]!.end, 2 * margin, duration),
        )
      : [view];
  const [a, b] = [first, second].map((id) => recordings.get(id)!.peaks.pcm) as [Float32Array, Float32Array];
  const different = places.filter((place) => !identical(a, b, transport.rateHz, place));
  const same = places.length - different.length;
  return (
    <>
      <h3 tabIndex={-1}>Blind test</h3>
      <p>
        Two methods hide behind A and B, anew in every trial, and one of them is X. Listen as often as you like, then
        say which one X is and which one sounds better. Names and score come after the last trial.
      </p>
      <div class="controls">
        <Select label="Compare" value={first} options={methods} onChoose={setFirst} />
        <Select label="with" value={second} options={methods} onChoose={setSecond} />
        <Select
          label="Listen to"
          value={where}
          options={lost.length ? kPlaces : kPlaces.slice(1)}
          onChoose={setWhere}
        />
        <Select label="Trials" value={count} options={kTrials} onChoose={setCount} />
      </div>
      {first === second ? (
        <p role="alert">Choose two different methods.</p>
      ) : different.length === 0 ? (
        <p role="alert">
          {nameOf(one)} and {nameOf(two)} sound the same there, sample by sample: nobody can tell them apart. Choose
          other methods or another place.
        </p>
      ) : (
        same > 0 && (
          <p>
            {nameOf(one)} and {nameOf(two)} sound the same around {same} of {places.length} gaps, sample by sample;
            those are left out.
          </p>
        )
      )}
      <button
        type="button"
        class="strong"
        disabled={first === second || different.length === 0}
        onClick={() => props.onBegin(drawTrials([one, two], different, Number(count)))}
      >
        Begin
      </button>
    </>
  );
}

interface ListeningProps {
  trials: readonly Trial[];
  number: number; // of the trial, from 0
  transport: Transport;
  onAnswer: (answer: Answer) => void;
  onStop: () => void;
}

function Listening({ trials, number, transport, onAnswer, onStop }: ListeningProps) {
  const trial = trials[number]!;
  const [heard, setHeard] = useState<Letter | "X">("A");
  const [x, setX] = useState<Letter>(); // the answer to the first question of the trial
  const hear = (letter: Letter | "X") => {
    setHeard(letter);
    transport.select(trial.behind[letter === "X" ? trial.x : letter].id);
    announce(`Hearing ${letter}`);
  };
  const answer = (choice: Answer["better"]) => {
    if (x) {
      setX(undefined);
      onAnswer({ x, better: choice });
    } else if (choice !== "neither") {
      setX(choice);
      announce("Which one sounds better?");
    }
  };
  useEffect(() => {
    transport.setLoop(trial.place);
    transport.seek(trial.place.start);
    hear("A");
    void transport.play();
    announce(`Trial ${number + 1} of ${trials.length}. Hearing A`);
  }, [number]);
  useShortcuts({
    "1": () => hear("A"),
    "2": () => hear("B"),
    "3": () => hear("X"),
    a: () => answer("A"),
    b: () => answer("B"),
    n: () => answer("neither"),
  });
  return (
    <div {...keepFocus}>
      <h3 tabIndex={-1}>
        Trial {number + 1} of {trials.length}
      </h3>
      <div class="abx">
        <div>
          <p>Hear</p>
          <div class="segments large" role="group" aria-label="Heard now">
            {(["A", "B", "X"] as const).map((letter, i) => (
              <button
                type="button"
                key={letter}
                aria-pressed={letter === heard}
                aria-keyshortcuts={String(i + 1)}
                onClick={() => hear(letter)}
              >
                {letter} <kbd>{i + 1}</kbd>
              </button>
            ))}
          </div>
        </div>
        <div>
          <p>{x ? "Which one sounds better?" : "Which one is X?"}</p>
          <div class="segments large" role="group" aria-label="Your answer">
            {(["A", "B"] as const).map((letter) => (
              <button type="button" key={letter} aria-keyshortcuts={letter} onClick={() => answer(letter)}>
                {x ? `${letter} is better` : `X is ${letter}`} <kbd>{letter}</kbd>
              </button>
            ))}
            {x && (
              <button type="button" aria-keyshortcuts="N" onClick={() => answer("neither")}>
                Neither <kbd>N</kbd>
              </button>
            )}
          </div>
        </div>
      </div>
      {number > 0 && (
        <button type="button" onClick={onStop}>
          Stop here
        </button>
      )}
    </div>
  );
}
