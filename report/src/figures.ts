// SPDX-License-Identifier: BSD-2-Clause
// Which method did best, which differences are none, and how many digits a figure deserves.
import type { Difference, Figure, Measure } from "./report";

export type Standing = "best" | "tied" | "behind" | "unranked";

/**
 * Ranks the contenders of one measure. "tied" is a method whose 95 % interval overlaps that of the best:
 * their difference shows nothing. Without two contenders, or a direction, nothing is ranked.
 */
export function standings(figures: ReadonlyMap<string, Figure>, better: string | undefined): Map<string, Standing> {
  const result = new Map<string, Standing>();
  for (const id of figures.keys()) result.set(id, "unranked");
  if (figures.size < 2 || (better !== "lower" && better !== "higher")) return result;

  const sign = better === "lower" ? 1 : -1;
  const best = [...figures.values()].reduce((a, b) => (sign * b.value < sign * a.value ? b : a));
  for (const [id, figure] of figures)
    result.set(id, figure === best ? "best" : overlap(figure, best) ? "tied" : "behind");
  return result;
}

/** Whether the interval of a difference includes none. Without an interval nothing is shown either. */
export const showsNothing = ({ low, high }: Difference): boolean => low == null || high == null || (low <= 0 && high >= 0);

function overlap(a: Figure, b: Figure): boolean {
  return (a.low ?? a.value) <= (b.high ?? b.value) && (b.low ?? b.value) <= (a.high ?? a.value);
}

/** Decimals, 0 to 3: the first digit that the narrowest interval leaves open, and two digits of the smallest value. */
export function decimalsFor(figures: Iterable<Figure>): number {
  let narrowest = Infinity;
  let smallest = Infinity; // but not 0
  let whole = true;
  for (const { value, low, high } of figures) {
    if (value !== 0) smallest = Math.min(smallest, Math.abs(value));
    whole &&= Number.isInteger(value) && low == null;
    const half = ((high ?? value) - (low ?? value)) / 2;
    if (half > 0) narrowest = Math.min(narrowest, half);
  }
  if (whole) return 0; // counts
  const byValue = Number.isFinite(smallest) ? Math.min(2, 1 - Math.floor(Math.log10(smallest))) : 0;
  const byInterval = Number.isFinite(narrowest) ? -Math.floor(Math.log10(narrowest)) : byValue;
  return Math.min(3, Math.max(0, byValue, byInterval));
}

/** With its sign, for differences. */
export const signed = (value: number, decimals: number): string => {
  const text = number(value, decimals);
  return Number(value.toFixed(decimals)) > 0 ? `+${text}` : text;
};

export function number(value: number, decimals: number): string {
  const text = value.toFixed(decimals);
  return (Number(text) === 0 ? (0).toFixed(decimals) : text).replace("-", "−");
}

/** "8.1 dB", "93 %", "0.83". */
export const withUnit = (text: string, unit: string | undefined): string => (unit ? `${text}\u00a0${unit}` : text);

export function direction(measure: Measure): string {
  if (measure.better === "lower") return "lower is better";
  return measure.better === "higher" ? "higher is better" : "";
}

/** "0:03.24": minutes, seconds and, where asked, their hundredths or thousandths. */
export function clockTime(seconds: number, decimals = 2): string {
  const scale = 10 ** decimals;
  const ticks = Math.round(Math.max(0, seconds) * scale);
  const minutes = Math.floor(ticks / (60 * scale));
  const rest = (ticks - minutes * 60 * scale) / scale;
  return `${minutes}:${rest.toFixed(decimals).padStart(decimals ? decimals + 3 : 2, "0")}`;
}
