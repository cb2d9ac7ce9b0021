// SPDX-License-Identifier: BSD-2-Clause
// Short-time spectra of the part of a recording that is on the screen.
import rfft from "fourier-transform";

export interface SpectrogramRequest {
  readonly lane: string;
  /** First and last sample shown; may be fractions. */
  readonly from: number;
  readonly to: number;
  readonly columns: number;
  /** Samples per spectrum, a power of two. */
  readonly window: number;
  /** Level that is drawn strongest, dB relative to a cosine of full scale. */
  readonly topDb: number;
}

export interface SpectrogramImage {
  readonly request: SpectrogramRequest;
  readonly bins: number;
  /** columns x bins, column after column from low to high frequencies; 255 is topDb, 0 is kRangeDb below. */
  readonly levels: Uint8Array<ArrayBuffer>;
}

/** From the faintest to the strongest shade. */
export const kRangeDb = 72;

/** About 30 ms, in which the harmonics of a voice stand apart; half of that where the ends of a gap fill the view. */
export function windowFor(rateHz: number, seconds: number): number {
  const whole = 2 ** Math.round(Math.log2(0.03 * rateHz));
  return seconds < 1 ? whole / 2 : whole;
}

export function spectrogram(pcm: Float32Array, request: SpectrogramRequest): SpectrogramImage {
  const { from, to, columns, window, topDb } = request;
  const bins = window / 2;
  const levels = new Uint8Array(columns * bins);
  const taper = Float32Array.from({ length: window }, (_, i) => 1 - Math.cos((2 * Math.PI * (i + 0.5)) / window));
  const frame = new Float32Array(window);
  const magnitude = new Float64Array(bins);
  for (let column = 0; column < columns; ++column) {
    const middle = from + ((column + 0.5) / columns) * (to - from);
    const start = Math.round(middle - window / 2);
    for (let i = 0; i < window; ++i) frame[i] = (pcm[start + i] ?? 0) * taper[i]!;
    rfft(frame, magnitude);
    for (let bin = 0; bin < bins; ++bin) {
      const db = 20 * Math.log10(magnitude[bin]! + 1e-9);
      levels[column * bins + bin] = Math.min(255, Math.max(0, 255 * (1 + (db - topDb) / kRangeDb)));
    }
  }
  return { request, bins, levels };
}
