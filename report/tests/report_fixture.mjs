// SPDX-License-Identifier: BSD-2-Clause
// A valid report with recordings whose samples tell the instant they belong to.
import { readFileSync } from "node:fs";

export const kRate = 16000;
export const kSeconds = 10;
const frameMs = 20;
const methods = ["silence", "codec", "neural", "enhanced", "aiplc", "ideal"];
const names = {
  silence: "Silence",
  codec: "Codec",
  neural: "Neural",
  enhanced: "Enhanced",
  aiplc: "aiplc",
  ideal: "No loss",
};

/** Above zero in two methods, below in the others: a switch between codec and aiplc changes the sign alone. */
export const sign = (method) => (method === "codec" || method === "neural" ? -1 : 1);
export const amplitudeAt = (seconds) => 0.1 + (0.7 * seconds) / kSeconds;
export const instantOf = (sample) => ((Math.abs(sample) - 0.1) / 0.7) * kSeconds;

export function wavAddress(pcm, rate = kRate) {
  const wav = Buffer.alloc(44 + 2 * pcm.length);
  wav.write("RIFF", 0);
  wav.writeUInt32LE(36 + 2 * pcm.length, 4);
  wav.write("WAVEfmt ", 8);
  wav.writeUInt32LE(16, 16);
  [1, 1].forEach((value, i) => wav.writeUInt16LE(value, 20 + 2 * i));
  wav.writeUInt32LE(rate, 24);
  wav.writeUInt32LE(2 * rate, 28);
  [2, 16].forEach((value, i) => wav.writeUInt16LE(value, 32 + 2 * i));
  wav.write("data", 36);
  wav.writeUInt32LE(2 * pcm.length, 40);
  pcm.forEach((x, i) => wav.writeInt16LE(Math.round(32767 * x), 44 + 2 * i));
  return `data:audio/wav;base64,${wav.toString("base64")}`;
}

function audio() {
  const ramp = (method) =>
    wavAddress(Float32Array.from({ length: kRate * kSeconds }, (_, i) => sign(method) * amplitudeAt(i / kRate)));
  return Object.fromEntries(methods.map((method) => [method, ramp(method)]));
}

/** Cuts a report's first call down to excerpts: two of one second each, from 3.8 s and from 6.8 s on. */
export function cutToExcerpts(data) {
  const file = data.files[0];
  const at = (i) => amplitudeAt(i < kRate ? 3.8 + i / kRate : 6.8 + i / kRate - 1);
  file.excerpts = [
    { first: 190, frames: 50 },
    { first: 340, frames: 50 },
  ];
  file.gaps = [...file.gaps, { first: 385, frames: 5, scores: { aiplc: { lsd: 1 }, codec: { lsd: 30 } } }]; // to the very end
  file.audio = { aiplc: wavAddress(Float32Array.from({ length: 2 * kRate }, (_, i) => at(i))) };
  data.audioNeededMb = 57.5;
  return data;
}

/** Of the gaps at 1 s, 4 s and 7 s the second is worst for aiplc, the third for the codec. */
const gaps = [
  { first: 50, frames: 1, scores: { aiplc: { lsd: 5.5 }, codec: { lsd: 6 } } },
  { first: 200, frames: 5, scores: { aiplc: { lsd: 14.2 }, codec: { lsd: 9 } } },
  { first: 350, frames: 3, scores: { aiplc: { lsd: 8.1 }, codec: { lsd: 21 } } },
];

/** Value, low and high by method: aiplc is best, the codec is told from it, and neural too where plus is large. */
const lsd = {
  silence: [30, 29, 31],
  codec: [9.4, 9, 9.8],
  neural: [8.3, 8, 8.7],
  enhanced: [9.1, 8.8, 9.5],
  aiplc: [8.1, 7.7, 8.5],
  ideal: [0, 0, 0],
};
const vsCodec = {
  neural: { value: -1.1, low: -2.3, high: 0.1 },
  aiplc: { value: -1.3, low: -1.9, high: -0.7 },
};
const figures = (loss, kind, plus) =>
  Object.entries(lsd).map(([method, [value, low, high]]) => {
    const more = method === "ideal" ? 0 : method === "neural" ? 2 * plus : plus;
    const moved = { value: value + more, low: low + more, high: high + more };
    return { loss, kind, method, measure: "lsd", ...moved, count: 312, vsCodec: vsCodec[method] };
  });

const sourceNames = {
  decoded: "Frames decoded",
  secondLook: "Single lost frames by the network",
  codec: "By the codec",
};
/** Of 500 frames. */
const sources = {
  codec: { decoded: 490, codec: 10 },
  aiplc: { decoded: 490, secondLook: 5, codec: 5 },
};
/** With one of a kind that the page does not know. */
const callSources = { ...sources, aiplc: { ...sources.aiplc, codec: 4, dreamt: 1 } };
const shares = Object.entries(sources).flatMap(([method, counts]) =>
  Object.entries(counts).map(([source, frames]) => {
    const figure = { loss: "loss5", kind: "call", method, measure: `share.${source}` };
    return { ...figure, value: frames / 5, count: 500 };
  }),
);

export function makeReport() {
  const file = (name, loss, rest) => ({ name, loss, frames: (1000 * kSeconds) / frameMs, gaps, ...rest });
  const own = figures("", "gap1", 1).map(({ loss, ...figure }) => figure);
  const recorded = audio();
  return {
    format: "aiplc-compare-1",
    created: "2026-01-31T12:00:00Z",
    command: "aiplc compare a.wav --loss 5,10",
    version: "1.2.3",
    libopus: "libopus 1.3.1",
    model: "model",
    rateHz: kRate,
    frameMs,
    methods: methods.map((id) => ({
      id,
      name: names[id],
      about: `About ${names[id]}.`,
      decoderComplexity: id === "enhanced" ? 10 : 4,
      enhances: id === "enhanced",
    })),
    losses: [
      { id: "loss5", name: "5 % in bursts of 1", percent: 5, burst: 1 },
      { id: "loss10", name: "10 % in bursts of 1", percent: 10, burst: 1 },
    ],
    measures: [
      { id: "lsd", name: "Log-spectral distance", unit: "dB", better: "lower" },
      { id: "estoi", name: "Intelligibility", unit: "", better: "higher" },
      ...Object.entries(sourceNames).map(([id, name]) => ({ id: `share.${id}`, name, unit: "%", better: "none" })),
    ],
    kinds: [
      { id: "gap1", name: "1 frame" },
      { id: "call", name: "whole call" },
    ],
    figures: [
      ...figures("loss5", "gap1", 0),
      ...figures("loss10", "gap1", 3),
      { loss: "loss5", kind: "call", method: "aiplc", measure: "estoi", value: 0.834, low: 0.81, high: 0.85, count: 2 },
      ...shares,
    ],
    files: [
      file("first.wav", "loss5", { audio: recorded, figures: own, sources: callSources }),
      file("second.wav", "loss5", { figures: own }),
      file("first.wav", "loss10", { audio: recorded }),
    ],
  };
}

const page = readFileSync(new URL("../dist/report.html", import.meta.url), "utf8");

/** The page as the command line writes it. */
export function fillPage(data) {
  const json = typeof data === "string" ? data : JSON.stringify(data);
  return page.replace("__AIPLC_REPORT_JSON__", () => json.replaceAll("<", "\\u003c"));
}
