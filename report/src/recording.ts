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

export interface Decoded {
  recordings: Map<string, Recording>;
  /** What went wrong, by method. */
  failures: Map<string, string>;
  /** Seconds; of the longest recording. */
  duration: number;
}

/** Decodes at the rate of the report, in the browser's own decoder (WAV and FLAC), off the page's thread. */
export async function decodeAll(audio: Readonly<Record<string, string>>, rateHz: number): Promise<Decoded> {
  const decoder = new OfflineAudioContext(1, 1, rateHz);
  const result: Decoded = { recordings: new Map(), failures: new Map(), duration: 0 };
  await Promise.all(
    Object.entries(audio).map(async ([method, address]) => {
      try {
        const buffer = await decoder.decodeAudioData(dataBytes(address).buffer);
        result.recordings.set(method, { buffer, peaks: new Peaks(buffer.getChannelData(0)) });
        result.duration = Math.max(result.duration, buffer.duration);
      } catch (error) {
        result.failures.set(method, (error as Error).message || "the browser cannot decode it");
      }
    }),
  );
  return result;
}
