// SPDX-License-Identifier: BSD-2-Clause
// Plays all methods of a call at once on one clock and lets one of them be heard.

/** Time constant of every fade, seconds: gone after 20 ms, and no click. Fades of two methods add up to 1. */
const kFade = 0.004;
/** Head start of a new deck, seconds, so that its start lies on the clock and not in the past. */
const kLead = 0.012;
/** Fade at both ends of a loop, seconds. */
const kLoopEdge = 0.004;

export interface Loop {
  readonly start: number;
  readonly end: number;
}

/** One start of the playback: a source for each method, all started at the same instant of the clock. */
interface Deck {
  readonly group: GainNode;
  readonly sources: AudioBufferSourceNode[];
  readonly gains: Map<string, GainNode>;
  readonly startedAt: number; // context time
  readonly from: number; // seconds into the call
  readonly loop: Loop | undefined;
}

export class Transport {
  onChange: () => void = () => {};
  #context: AudioContext | undefined;
  #buffers: ReadonlyMap<string, AudioBuffer> = new Map();
  #duration = 0;
  #deck: Deck | undefined;
  #wanted = false; // set between play() and the deck's start too
  #rest = 0; // position while nothing plays
  #method = "";
  #loop: Loop | undefined;

  constructor(readonly rateHz: number) {}

  load(buffers: ReadonlyMap<string, AudioBuffer>, duration: number): void {
    this.#halt();
    this.#buffers = buffers;
    this.#duration = duration;
    this.#rest = 0;
    this.#loop = undefined;
    this.onChange();
  }

  /** Stops for good. */
  close(): void {
    this.#halt();
    void this.#context?.close();
  }

  get playing(): boolean {
    return this.#wanted;
  }

  get loop(): Loop | undefined {
    return this.#loop;
  }

  /** Seconds into the call of what is heard now. */
  get position(): number {
    const deck = this.#deck;
    if (!deck || !this.#context) return this.#rest;
    const latency = this.#context.outputLatency || 0;
    const elapsed = Math.max(0, this.#context.currentTime - latency - deck.startedAt);
    const at = deck.from + elapsed;
    if (!deck.loop) return Math.min(at, this.#duration);
    const { start, end } = deck.loop;
    return at < end ? at : start + ((at - start) % (end - start));
  }

  async play(): Promise<void> {
    if (this.#wanted || this.#buffers.size === 0) return;
    this.#wanted = true;
    this.#context ??= this.#open();
    await this.#context.resume();
    if (!this.#wanted || this.#deck) return;
    this.#start(this.#rest >= this.#duration - 0.001 ? 0 : this.#rest);
    this.onChange();
  }

  pause(): void {
    this.#halt();
    this.onChange();
  }

  /** Within a loop, stays in it. */
  seek(seconds: number): void {
    const loop = this.#loop;
    const low = loop ? loop.start : 0;
    const high = loop ? loop.end - 0.001 : this.#duration;
    const at = Math.min(Math.max(seconds, low), high);
    if (this.#deck) {
      this.#stop();
      this.#start(at);
    }
    this.#rest = at;
    this.onChange();
  }

  /** The other methods go on unheard, so that the next switch finds them at the same instant. */
  select(method: string): void {
    this.#method = method;
    const now = this.#context?.currentTime ?? 0;
    for (const [id, gain] of this.#deck?.gains ?? []) gain.gain.setTargetAtTime(id === method ? 1 : 0, now, kFade);
    this.onChange();
  }

  setLoop(loop: Loop | undefined): void {
    const at = this.position;
    // Whole samples, so that the sources and the envelope of the loop stay together.
    this.#loop = loop && {
      start: Math.round(loop.start * this.rateHz) / this.rateHz,
      end: Math.round(loop.end * this.rateHz) / this.rateHz,
    };
    const inside = !this.#loop || (at >= this.#loop.start && at < this.#loop.end);
    this.seek(inside ? at : this.#loop!.start);
  }

  /** At the rate of the recordings: the system then resamples all methods alike. */
  #open(): AudioContext {
    try {
      return new AudioContext({ sampleRate: this.rateHz });
    } catch {
      return new AudioContext();
    }
  }

  #start(from: number): void {
    const context = this.#context!;
    const when = context.currentTime + kLead;
    const group = context.createGain();
    group.gain.value = 0;
    group.gain.setTargetAtTime(1, when, kFade);
    const sources: AudioBufferSourceNode[] = [];
    const gains = new Map<string, GainNode>();
    const run = (buffer: AudioBuffer, target: AudioNode | AudioParam, offset: number, loop: Loop | undefined) => {
      const source = context.createBufferSource();
      source.buffer = buffer;
      if (loop) [source.loop, source.loopStart, source.loopEnd] = [true, loop.start, loop.end];
      source.connect(target as AudioNode);
      source.start(when, offset);
      sources.push(source);
    };

    for (const [method, buffer] of this.#buffers) {
      const gain = context.createGain();
      gain.gain.value = method === this.#method ? 1 : 0;
      gain.connect(group);
      gains.set(method, gain);
      run(buffer, gain, from, this.#loop);
    }
    if (this.#loop) {
      const { start, end } = this.#loop;
      const edges = context.createGain();
      edges.gain.value = 0;
      run(this.#envelope(end - start), edges.gain, from - start, { start: 0, end: end - start });
      group.connect(edges).connect(context.destination);
    } else {
      group.connect(context.destination);
    }

    const deck: Deck = { group, sources, gains, startedAt: when, from, loop: this.#loop };
    this.#deck = deck;
    sources[0]!.onended = () => {
      if (this.#deck === deck) {
        this.#deck = undefined;
        this.#wanted = false;
        this.#rest = this.#duration;
        this.onChange();
      }
      if (!this.#wanted) void context.suspend(); // a paused page leaves the sound device alone
    };
  }

  /** Gain over one round of a loop: the wrap from its end to its start would click without it. */
  #envelope(seconds: number): AudioBuffer {
    const length = Math.round(seconds * this.rateHz);
    const edge = Math.max(1, Math.round(kLoopEdge * this.rateHz));
    const buffer = new AudioBuffer({ length, sampleRate: this.rateHz });
    const gain = buffer.getChannelData(0);
    for (let i = 0; i < length; ++i) gain[i] = Math.min(1, i / edge, (length - 1 - i) / edge);
    return buffer;
  }

  #stop(): void {
    const deck = this.#deck;
    if (!deck) return;
    this.#deck = undefined;
    const now = this.#context!.currentTime;
    deck.group.gain.cancelScheduledValues(now);
    deck.group.gain.setTargetAtTime(0, now, kFade);
    for (const source of deck.sources) source.stop(now + 8 * kFade);
  }

  #halt(): void {
    this.#rest = this.position;
    this.#wanted = false;
    this.#stop();
  }
}
