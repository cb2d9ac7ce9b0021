// SPDX-License-Identifier: BSD-2-Clause

/** Probability that guessing gives at least `right` of `trials` right answers, each with probability 1/2. */
export function guessProbability(right: number, trials: number): number {
  if (right <= 0) return 1;
  let ways = 1; // n over k, times 2^-n in the end; exact up to 2^53, far beyond any test that a listener takes
  let sum = 0;
  for (let k = 0; k <= trials; ++k) {
    if (k >= right) sum += ways;
    ways = (ways * (trials - k)) / (k + 1);
  }
  return sum / 2 ** trials;
}
