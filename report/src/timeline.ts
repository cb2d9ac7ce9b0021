// SPDX-License-Identifier: BSD-2-Clause
// The parts of a call that its recordings hold, and where each lies in the recordings and in the call.
import type { Stretch } from "./lane_painter";
import type { CallFile } from "./report";
import type { View } from "./view";

interface Part {
  at: number; // seconds into the recordings
  call: number; // seconds into the call
  length: number; // seconds
}

const kRounding = 1e-6; // seconds

export class Timeline {
  readonly #parts: Part[] = [];
  readonly #frame: number; // seconds
  readonly #end: number; // of the call, seconds

  constructor({ frames, excerpts }: Pick<CallFile, "frames" | "excerpts">, frameMs: number) {
    this.#frame = frameMs / 1000;
    this.#end = frames * this.#frame;
    let at = 0;
    for (const part of excerpts ?? [{ first: 0, frames }]) {
      const length = part.frames * this.#frame;
      this.#parts.push({ at, call: part.first * this.#frame, length });
      at += length;
    }
  }

  /** Instants of the recordings at which one excerpt ends and the next one begins. */
  get joins(): number[] {
    return this.#parts.slice(1).map((part) => part.at);
  }

  #partAt(seconds: number): Part {
    return this.#parts.filter(({ at }) => at <= seconds).at(-1) ?? this.#parts[0]!;
  }

  /** From seconds into the recordings to seconds into the call. */
  toCall(seconds: number): number {
    const { at, call } = this.#partAt(seconds);
    return call + seconds - at;
  }

  /** Up to `lead` seconds before an instant of the recordings, but not before its excerpt begins. */
  before(seconds: number, lead: number): number {
    return Math.max(this.#partAt(seconds).at, seconds - lead);
  }

  /** Where frames of the call lie in the recordings; undefined where these hold none of them. */
  find({ first, frames }: { first: number; frames: number }): Stretch | undefined {
    for (const { at, call, length } of this.#parts) {
      const start = Math.max(0, first * this.#frame - call);
      const end = Math.min(length, (first + frames) * this.#frame - call);
      if (end > start) return { start: at + start, end: at + end };
    }
    return undefined;
  }

  /** Whether an excerpt holds frames of the call whole, with `margin` seconds on either side as far as the call goes. */
  surrounds({ first, frames }: { first: number; frames: number }, margin: number): boolean {
    const start = Math.max(0, first * this.#frame - margin);
    const end = Math.min(this.#end, (first + frames) * this.#frame + margin);
    return this.#parts.some(({ call, length }) => call < start + kRounding && call + length > end - kRounding);
  }

  /** The multiples of `step` seconds of the call that lie in a view, with their place in the recordings. */
  ticks({ start, end }: View, step: number): { at: number; call: number }[] {
    return this.#parts.flatMap(({ at, call, length }) => {
      const last = Math.min(end, at + length) - at + call;
      const found: { at: number; call: number }[] = [];
      for (let i = Math.ceil((Math.max(start, at) - at + call) / step); i * step <= last; ++i)
        found.push({ at: at + i * step - call, call: i * step });
      return found;
    });
  }
}
