// SPDX-License-Identifier: BSD-2-Clause
// Computes spectrograms beside the page's own thread.
import { spectrogram, type SpectrogramRequest } from "./spectrogram";

export type SpectrogramTask = { lane: string; pcm: Float32Array } | SpectrogramRequest;

const recordings = new Map<string, Float32Array>();

addEventListener("message", ({ data }: MessageEvent<SpectrogramTask>) => {
  if ("pcm" in data) {
    recordings.set(data.lane, data.pcm);
    return;
  }
  const image = spectrogram(recordings.get(data.lane) ?? new Float32Array(), data);
  postMessage(image, { transfer: [image.levels.buffer] });
});
