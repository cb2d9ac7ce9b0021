// SPDX-License-Identifier: BSD-2-Clause
// Asks the worker for spectrograms, for each lane only for the newest view.
import program from "worker:./spectrogram_worker.ts";
import type { SpectrogramImage, SpectrogramRequest } from "./spectrogram";

export class SpectrogramService {
  readonly #worker: Worker;
  readonly #busy = new Set<string>();
  readonly #next = new Map<string, SpectrogramRequest>(); // the newest view of a busy lane

  /** onImage gets an image that may be older than the last request: stretched, it still serves. */
  constructor(onImage: (image: SpectrogramImage) => void) {
    const address = URL.createObjectURL(new Blob([program], { type: "text/javascript" }));
    this.#worker = new Worker(address);
    URL.revokeObjectURL(address);
    this.#worker.onmessage = ({ data }: MessageEvent<SpectrogramImage>) => {
      const lane = data.request.lane;
      this.#busy.delete(lane);
      const next = this.#next.get(lane);
      this.#next.delete(lane);
      if (next) this.request(next);
      onImage(data);
    };
  }

  load(lane: string, pcm: Float32Array): void {
    this.#worker.postMessage({ lane, pcm });
  }

  request(request: SpectrogramRequest): void {
    if (this.#busy.has(request.lane)) {
      this.#next.set(request.lane, request);
      return;
    }
    this.#busy.add(request.lane);
    this.#worker.postMessage(request);
  }

  close(): void {
    this.#worker.terminate();
  }
}
