// SPDX-License-Identifier: BSD-2-Clause
// Which method did best, which differences are none, and how many digits a figure deserves.
import { type Difference, type Figure, isBaseline, type Measure } from "./report";

export type Standing = "best" | "tied" | "behind" | "unranked";

/**
 * Ranks the contenders of one measure. Those that are not told apart from the best are "tied", and so is the best itself
 * then; a contender that ties with silence alone is no winner either. With fewer than two contenders, or without a
 * direction, nothing is ranked.
 */
export function standings(figures: ReadonlyMap<string, Figure>, better: string | undefined): Map<string, Standing> {
  const result = new Map<string, Standing>();
  for (const id of figures.keys()) result.set(id, "unranked");
  const contenders = [...figures].filter(([id]) => !isBaseline({ id }));
  if (contenders.length < 2 || (better !== "lower" && better !== "higher")) return result;

  const sign = better === "lower" ? 1 : -1;
  const best = [...figures.values()].reduce((a, b) => (sign * b.value < sign * a.value ? b : a));
  const level = [...figures.values()].filter((figure) => figure === best || !toldApart(figure, best));
  for (const [id, figure] of contenders)
    result.set(id, !level.includes(figure) ? "behind" : level.length === 1 ? "best" : "tied");
  return result;
}

/** Whether the interval of a difference includes none. Without an interval nothing is shown either. */
export const showsNothing = ({ low, high }: Difference): boolean =>
  low == null || high == null || (low <= 0 && high >= 0);

/** Against the codec by the interval of the paired difference, else where the two 95 % intervals do not overlap. */
function toldApart(a: Figure, b: Figure): boolean {
  const paired = a.method === "codec" ? b.vsCodec : b.method === "codec" ? a.vsCodec : undefined;
  if (paired) return !showsNothing(paired);
  if (a.low == null || a.high == null || b.low == null || b.high == null) return false;
  return a.low > b.high || b.low > a.high;
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
