// SPDX-License-Identifier: BSD-2-Clause
// The end of a blind test: what was told apart, what was preferred, and every trial.
import { useEffect } from "preact/hooks";
import { announce } from "./announce";
import { type Answer, scoreOfAnswers, type Trial } from "./blind_plan";
import { clockTime } from "./figures";
import { nameOf } from "./report";

interface Props {
  trials: readonly Trial[];
  answers: readonly Answer[];
  toCall: (seconds: number) => number;
  onAgain: () => void;
}

const percentOf = (probability: number): string =>
  probability < 0.001 ? "less than 0.1 %" : `${(100 * probability).toFixed(1)} %`;

export function BlindResult({ trials, answers, toCall, onAgain }: Props) {
  const score = scoreOfAnswers(trials, answers);
  const title = `${score.right} of ${answers.length} right`;
  const counts = Object.values(trials[0]!.behind)
    .map((m) => ({ name: nameOf(m), count: score.preferred.get(m.id) ?? 0 }))
    .sort((a, b) => b.count - a.count);
  const [first, second] = counts as [(typeof counts)[0], (typeof counts)[0]];
  useEffect(() => announce(`${title}, probability by guessing ${percentOf(score.byGuessing)}`), []);
  return (
    <>
      <h3 tabIndex={-1}>{title}</h3>
      <p>
        Guessing gives as many right answers or more with a probability of{" "}
        <strong>{percentOf(score.byGuessing)}</strong> (binomial).{" "}
        {score.byGuessing < 0.05
          ? "Guessing hardly explains that: the two sound different to this listener here."
          : "Guessing explains that as well: no difference was shown."}
        {answers.length < trials.length &&
          " The test was stopped early; a score counts only for a number of trials fixed before."}
      </p>
      <p>
        <strong>{first.name}</strong> was called better in {first.count} of {answers.length} trials,{" "}
        <strong>{second.name}</strong> in {second.count}, neither in {score.neither}. Were the two equally good,
        preferences this one-sided would come with a probability of <strong>{percentOf(score.byChance)}</strong> (sign
        test). {score.byChance < 0.05 ? `This listener prefers ${first.name} here.` : "No preference was shown."}
      </p>
      <table class="trials">
        <thead>
          <tr>
            {["Trial", "From", "A was", "B was", "X was", "Answer", "Better"].map((name) => (
              <th scope="col" key={name}>
                {name}
              </th>
            ))}
          </tr>
        </thead>
        <tbody>
          {answers.map((answer, i) => {
            const { behind, x, place } = trials[i]!;
            return (
              <tr key={i}>
                <th scope="row">{i + 1}</th>
                <td>{clockTime(toCall(place.start))}</td>
                <td>{nameOf(behind.A)}</td>
                <td>{nameOf(behind.B)}</td>
                <td>{x}</td>
                <td>
                  {answer.x} {answer.x === x ? "✓" : "✗"}
                  <span class="visually-hidden">{answer.x === x ? "right" : "wrong"}</span>
                </td>
                <td>{answer.better === "neither" ? "–" : nameOf(behind[answer.better])}</td>
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
