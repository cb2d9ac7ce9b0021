// SPDX-License-Identifier: BSD-2-Clause
// The recordings of a call: from the data addresses of the report to samples.
import { Peaks } from "./peaks";

export interface Recording {
  readonly buffer: AudioBuffer;
  readonly peaks: Peaks;
}

/** Bytes of a "data:...;base64," address. Throws where it is none: nothing is ever fetched. */
export function dataBytes(address: string): Uint8Array<ArrayBuffer> {
  const comma = address.indexOf(",");
  if (!/^data:[^,]*;base64$/.test(address.slice(0, Math.max(0, comma))))
    throw new Error("the recording is not kept in the page (no base64 data address)");
  const binary = atob(address.slice(comma + 1));
  const bytes = new Uint8Array(binary.length);
  for (let i = 0; i < binary.length; ++i) bytes[i] = binary.charCodeAt(i);
  return bytes;
}

/** Seconds over which an excerpt fades at either end: the step from one to the next would click. */
const kFade = 0.005;

function fade(pcm: Float32Array, join: number, length: number): void {
  for (let i = 0; i < length; ++i)
    for (const at of [join - 1 - i, join + i]) if (at >= 0 && at < pcm.length) pcm[at] = (pcm[at]! * i) / length;
}

export interface Decoded {
  recordings: Map<string, Recording>;
  /** The reason why a method has no recording, by method. */
  failures: Map<string, string>;
  /** Seconds; of the longest recording. */
  duration: number;
}

/**
 * Decodes at the rate of the report, in the browser's own decoder (WAV and FLAC), off the page's thread.
 * joins: seconds at which excerpts meet, which are faded there.
 */
export async function decodeAll(
  audio: Readonly<Record<string, string>>,
  rateHz: number,
  joins: readonly number[],
): Promise<Decoded> {
  const decoder = new OfflineAudioContext(1, 1, rateHz);
  const result: Decoded = { recordings: new Map(), failures: new Map(), duration: 0 };
  await Promise.all(
    Object.entries(audio).map(async ([method, address]) => {
      try {
        const buffer = await decoder.decodeAudioData(dataBytes(address).buffer);
        for (const join of joins) fade(buffer.getChannelData(0), Math.round(join * rateHz), Math.round(kFade * rateHz));
        result.recordings.set(method, { buffer, peaks: new Peaks(buffer.getChannelData(0)) });
        result.duration = Math.max(result.duration, buffer.duration);
      } catch (error) {
        result.failures.set(method, (error as Error).message || "the browser cannot decode it");
      }
    }),
  );
  return result;
}
