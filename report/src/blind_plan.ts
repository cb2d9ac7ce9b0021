// SPDX-License-Identifier: BSD-2-Clause
// The trials of a blind test, drawn before the first one is heard, and the score of their answers.
import { guessProbability } from "./binomial";
import type { Stretch } from "./lane_painter";
import type { Method } from "./report";

export type Letter = "A" | "B";

export interface Trial {
  behind: Record<Letter, Method>; // drawn anew in every trial, so that preferences stay blind
  x: Letter;
  place: Stretch;
}

export interface Answer {
  x: Letter;
  better: Letter | "neither";
}

/** Fair coins from the system's generator. */
const coins = (count: number): boolean[] =>
  [...crypto.getRandomValues(new Uint8Array(count))].map((byte) => byte % 2 === 1);

/** places: at least one; they are taken in turn. */
export function drawTrials([one, two]: readonly [Method, Method], places: readonly Stretch[], count: number): Trial[] {
  const tossed = coins(2 * count);
  return Array.from({ length: count }, (_, i) => ({
    behind: tossed[2 * i] ? { A: two, B: one } : { A: one, B: two },
    x: tossed[2 * i + 1] ? "A" : "B",
    place: places[i % places.length]!,
  }));
}

/** Whether two recordings hold the same samples between two instants. */
export function identical(a: Float32Array, b: Float32Array, rateHz: number, { start, end }: Stretch): boolean {
  for (let i = Math.floor(start * rateHz); i < end * rateHz; ++i) if (a[i] !== b[i]) return false;
  return true;
}

export interface Score {
  right: number;
  /** Probability that guessing gives as many right answers or more. */
  byGuessing: number;
  /** Trials in which each method was called better, by its id. */
  preferred: Map<string, number>;
  neither: number;
  /** Probability of preferences at least as one-sided where neither method is better (sign test, two-sided). */
  byChance: number;
}

export function scoreOfAnswers(trials: readonly Trial[], answers: readonly Answer[]): Score {
  const preferred = new Map<string, number>();
  answers.forEach(({ better }, i) => {
    if (better === "neither") return;
    const { id } = trials[i]!.behind[better];
    preferred.set(id, (preferred.get(id) ?? 0) + 1);
  });
  const right = answers.filter(({ x }, i) => x === trials[i]!.x).length;
  const counts = [...preferred.values()];
  const decided = counts.reduce((sum, n) => sum + n, 0);
  return {
    right,
    byGuessing: guessProbability(right, answers.length),
    preferred,
    neither: answers.length - decided,
    byChance: Math.min(1, 2 * guessProbability(Math.max(0, ...counts), decided)),
  };
}
