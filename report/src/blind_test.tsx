// SPDX-License-Identifier: BSD-2-Clause
// A/B/X: two methods behind the letters A and B, one of them behind X; the listener says which.
import { useEffect, useState } from "preact/hooks";
import { announce } from "./announce";
import { guessProbability } from "./binomial";
import { clockTime } from "./figures";
import { orderByDifference } from "./gap_order";
import type { Stretch } from "./lane_painter";
import { type CallFile, isReference, type Method, nameOf } from "./report";
import { Select } from "./select";
import { keepFocus, useShortcuts } from "./shortcuts";
import type { Transport } from "./transport";
import { around, type View } from "./view";

type Letter = "A" | "B";

interface Trial {
  x: Letter;
  place: Stretch;
}

/** What is drawn before the first trial and stays hidden until the last. */
interface Plan {
  behind: Record<Letter, Method>;
  trials: readonly Trial[];
}

interface Props {
  file: CallFile;
  lost: readonly Stretch[];
  methods: readonly Method[]; // those with a recording
  measure: string;
  margin: number; // seconds played around a gap
  transport: Transport;
  duration: number;
  view: View;
  onLeave: () => void;
}

export function BlindTest(props: Props) {
  const { transport, onLeave } = props;
  const [plan, setPlan] = useState<Plan>();
  const [answers, setAnswers] = useState<readonly Letter[]>([]);
  const [stopped, setStopped] = useState(false);
  const begin = (next: Plan | undefined) => {
    setPlan(next);
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
  const done = plan && (stopped || answers.length === plan.trials.length);
  useEffect(() => {
    if (done) transport.pause();
  }, [done]);
  return (
    <section class="blind-test" aria-label="Blind test">
      {!plan && <Setup {...props} onBegin={begin} />}
      {plan && !done && (
        <Listening
          plan={plan}
          number={answers.length}
          transport={transport}
          onAnswer={(letter) => setAnswers([...answers, letter])}
          onStop={() => setStopped(true)}
        />
      )}
      {plan && done && <Result plan={plan} answers={answers} onAgain={() => begin(undefined)} />}
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

/** A fair coin for each trial, from the system's generator. */
const coins = (count: number): boolean[] => [...crypto.getRandomValues(new Uint8Array(count))].map((byte) => byte % 2 === 1);

function Setup({ methods, file, lost, measure, margin, duration, view, onBegin }: Props & { onBegin: (plan: Plan) => void }) {
  const contenders = methods.filter((m) => !isReference(m));
  const [first, setFirst] = useState((contenders.find((m) => m.id === "aiplc") ?? methods[0]!).id);
  const [second, setSecond] = useState((methods.find((m) => m.id === "codec" && m.id !== first) ?? methods.find((m) => m.id !== first)!).id);
  const [count, setCount] = useState("12");
  const [where, setWhere] = useState(lost.length > 0 ? "gaps" : "view");
  const begin = () => {
    const [one, two] = [first, second].map((id) => methods.find((m) => m.id === id)!) as [Method, Method];
    const [swap, ...xs] = coins(1 + Number(count));
    const gaps = orderByDifference(file.gaps, first, second, measure);
    const trials = xs.map((isA, i): Trial => {
      const gap = lost[gaps[i % Math.max(1, gaps.length)] ?? -1];
      const place = where === "gaps" && gap ? around(gap.start, gap.end, 2 * margin, duration) : view;
      return { x: isA ? "A" : "B", place };
    });
    onBegin({ behind: swap ? { A: two, B: one } : { A: one, B: two }, trials });
  };
  return (
    <>
      <h3>Blind test</h3>
      <p>
        Two methods hide behind A and B; in every trial one of them is X. Listen as often as you like, then say which
        one X is. Names and score come after the last trial.
      </p>
      <div class="controls">
        <Select label="Compare" value={first} options={methods} onChoose={setFirst} />
        <Select label="with" value={second} options={methods} onChoose={setSecond} />
        <Select label="Listen to" value={where} options={lost.length ? kPlaces : kPlaces.slice(1)} onChoose={setWhere} />
        <Select label="Trials" value={count} options={kTrials} onChoose={setCount} />
      </div>
      {first === second && <p role="alert">Choose two different methods.</p>}
      <button type="button" class="strong" disabled={first === second} onClick={begin}>
        Begin
      </button>
    </>
  );
}

interface ListeningProps {
  plan: Plan;
  number: number; // of the trial, from 0
  transport: Transport;
  onAnswer: (letter: Letter) => void;
  onStop: () => void;
}

function Listening({ plan, number, transport, onAnswer, onStop }: ListeningProps) {
  const trial = plan.trials[number]!;
  const [heard, setHeard] = useState<Letter | "X">("A");
  const hear = (letter: Letter | "X") => {
    setHeard(letter);
    transport.select(plan.behind[letter === "X" ? trial.x : letter].id);
    announce(`Hearing ${letter}`);
  };
  useEffect(() => {
    transport.setLoop(trial.place);
    transport.seek(trial.place.start);
    hear("A");
    void transport.play();
    announce(`Trial ${number + 1} of ${plan.trials.length}. Hearing A`);
  }, [number]);
  useShortcuts({
    "1": () => hear("A"),
    "2": () => hear("B"),
    "3": () => hear("X"),
    a: () => onAnswer("A"),
    b: () => onAnswer("B"),
  });
  return (
    <div {...keepFocus}>
      <h3>
        Trial {number + 1} of {plan.trials.length}
      </h3>
      <div class="abx">
        <div class="segments large" role="group" aria-label="Heard now">
          {(["A", "B", "X"] as const).map((letter, i) => (
            <button type="button" key={letter} aria-pressed={letter === heard} aria-keyshortcuts={String(i + 1)} onClick={() => hear(letter)}>
              {letter} <kbd>{i + 1}</kbd>
            </button>
          ))}
        </div>
        <div class="segments large" role="group" aria-label="Your answer">
          {(["A", "B"] as const).map((letter) => (
            <button type="button" key={letter} aria-keyshortcuts={letter} onClick={() => onAnswer(letter)}>
              X is {letter} <kbd>{letter}</kbd>
            </button>
          ))}
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

function Result({ plan, answers, onAgain }: { plan: Plan; answers: readonly Letter[]; onAgain: () => void }) {
  const right = answers.filter((answer, i) => answer === plan.trials[i]!.x).length;
  const chance = guessProbability(right, answers.length);
  const score = `${right} of ${answers.length} right`;
  const percent = chance < 0.001 ? "less than 0.1 %" : `${(100 * chance).toFixed(1)} %`;
  const meaning =
    chance < 0.05
      ? "Guessing hardly explains that: the two sound different to this listener here."
      : "Guessing explains that as well: no difference was shown.";
  useEffect(() => announce(`${score}, probability by guessing ${percent}`), []);
  return (
    <>
      <h3>{score}</h3>
      <p>
        A was <strong>{nameOf(plan.behind.A)}</strong>, B was <strong>{nameOf(plan.behind.B)}</strong>. Guessing gives
        as many right answers or more with a probability of <strong>{percent}</strong> (binomial). {meaning}
        {answers.length < plan.trials.length && " The test was stopped early; a score counts only for a number of trials fixed before."}
      </p>
      <table class="trials">
        <thead>
          <tr>
            <th scope="col">Trial</th>
            <th scope="col">From</th>
            <th scope="col">X was</th>
            <th scope="col">Answer</th>
          </tr>
        </thead>
        <tbody>
          {answers.map((answer, i) => {
            const { x, place } = plan.trials[i]!;
            return (
              <tr key={i}>
                <th scope="row">{i + 1}</th>
                <td>{clockTime(place.start)}</td>
                <td>{x}</td>
                <td>
                  {answer} {answer === x ? "✓" : "✗"}
                  <span class="visually-hidden">{answer === x ? "right" : "wrong"}</span>
                </td>
              </tr>
            );
          })}
        </tbody>
      </table>
      <button type="button" class="strong" onClick={onAgain}>
        Another test
      </button>
    </>
  );
}
