// SPDX-License-Identifier: BSD-2-Clause
// Lowest and highest sample over any stretch of a recording, fast enough to draw it at any zoom.

/** Samples per block of the coarse level. */
const kBlock = 128;

export class Peaks {
  readonly #low: Float32Array;
  readonly #high: Float32Array;
  /** Greatest magnitude of the whole recording. */
  readonly top: number;

  constructor(readonly pcm: Float32Array) {
    const blocks = Math.ceil(pcm.length / kBlock);
    this.#low = new Float32Array(blocks);
    this.#high = new Float32Array(blocks);
    let top = 0;
    for (let b = 0; b < blocks; ++b) {
      const [low, high] = this.#scan(b * kBlock, Math.min(pcm.length, (b + 1) * kBlock));
      this.#low[b] = low;
      this.#high[b] = high;
      top = Math.max(top, -low, high);
    }
    this.top = top;
  }

  #scan(from: number, to: number): [number, number] {
    let low = Infinity;
    let high = -Infinity;
    for (let i = from; i < to; ++i) {
      const x = this.pcm[i]!;
      if (x < low) low = x;
      if (x > high) high = x;
    }
    return [low, high];
  }

  /** Over samples from..to-1, at least one; zeros outside the recording. Long stretches are rounded to whole blocks. */
  range(from: number, to: number): [number, number] {
    const first = Math.max(0, Math.floor(from));
    const last = Math.min(this.pcm.length, Math.max(first + 1, Math.ceil(to)));
    if (first >= last) return [0, 0];
    if (last - first < 2 * kBlock) return this.#scan(first, last);
    let low = Infinity;
    let high = -Infinity;
    for (let b = Math.floor(first / kBlock); b < Math.floor(last / kBlock); ++b) {
      low = Math.min(low, this.#low[b]!);
      high = Math.max(high, this.#high[b]!);
    }
    return [low, high];
  }
}
