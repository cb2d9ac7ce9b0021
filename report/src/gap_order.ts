// SPDX-License-Identifier: BSD-2-Clause
// The order of the gaps of a call by how badly they came out.
import type { Gap } from "./report";

export type GapSort = "apart" | "worst" | "time" | "longest";

export function scoreOf(gap: Gap, method: string, measure: string): number | undefined {
  return gap.scores[method]?.[measure] ?? undefined;
}

/** Indices into gaps. A gap without a score comes last; equals stay in the order of time. */
export function orderGaps(
  gaps: readonly Gap[],
  sort: GapSort,
  method: string,
  measure: string,
  better: string | undefined,
): number[] {
  if (sort === "apart") return orderByDifference(gaps, method, "codec", measure);
  const badness = (index: number): number => {
    const gap = gaps[index]!;
    if (sort === "time") return -gap.first;
    if (sort === "longest") return gap.frames;
    const score = scoreOf(gap, method, measure);
    if (score === undefined) return -Infinity;
    return better === "higher" ? -score : score;
  };
  return gaps
    .map((gap, index) => ({ index, first: gap.first, badness: badness(index) }))
    .sort((a, b) => (a.badness === b.badness ? a.first - b.first : b.badness - a.badness))
    .map(({ index }) => index);
}

/** The score of one method less that of another; undefined where either has none. */
export function difference(gap: Gap, a: string, b: string, measure: string): number | undefined {
  const one = scoreOf(gap, a, measure);
  const two = scoreOf(gap, b, measure);
  return one === undefined || two === undefined ? undefined : one - two;
}

/** Gaps where two methods lie furthest apart come first: a listener hears most there. */
export function orderByDifference(gaps: readonly Gap[], a: string, b: string, measure: string): number[] {
  const apart = gaps.map((gap) => {
    const signed = difference(gap, a, b, measure);
    return signed === undefined ? -1 : Math.abs(signed);
  });
  return gaps.map((_, index) => index).sort((i, j) => apart[j]! - apart[i]! || i - j);
}
