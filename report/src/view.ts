// SPDX-License-Identifier: BSD-2-Clause
// The visible part of a call, in seconds.

export interface View {
  readonly start: number;
  readonly end: number;
}

/** Ten milliseconds: single samples are visible then. */
const kShortest = 0.01;

export const span = (view: View): number => view.end - view.start;

/** Moves and shortens a view so that it lies within the call. */
export function fit(view: View, duration: number): View {
  const width = Math.min(Math.max(span(view), kShortest), duration);
  const start = Math.min(Math.max(view.start, 0), duration - width);
  return { start, end: start + width };
}

/** factor > 1 shows more; the instant `at` keeps its place. */
export function zoomAbout(view: View, at: number, factor: number, duration: number): View {
  const width = Math.min(Math.max(span(view) * factor, kShortest), duration);
  const share = (at - view.start) / span(view);
  return fit({ start: at - share * width, end: at + (1 - share) * width }, duration);
}

export const shift = (view: View, seconds: number, duration: number): View =>
  fit({ start: view.start + seconds, end: view.end + seconds }, duration);

/** A gap with what lies around it, so that both joins are heard and seen. */
export function around(start: number, end: number, margin: number, duration: number): View {
  return { start: Math.max(0, start - margin), end: Math.min(duration, end + margin) };
}

/** A step of 1, 2 or 5 times a power of ten that gives about `count` marks. */
export function tickStep(seconds: number, count: number): number {
  const raw = seconds / Math.max(1, count);
  const power = 10 ** Math.floor(Math.log10(raw));
  const step = [1, 2, 5, 10].find((m) => m * power >= raw) ?? 10;
  return step * power;
}
