// SPDX-License-Identifier: BSD-2-Clause
import assert from "node:assert/strict";
import { test } from "node:test";
import { fileURLToPath } from "node:url";
import { build } from "esbuild";

async function load(name) {
  const entry = fileURLToPath(new URL(`../src/${name}.ts`, import.meta.url));
  const { outputFiles } = await build({ entryPoints: [entry], bundle: true, write: false, format: "esm" });
  return import(`data:text/javascript,${encodeURIComponent(outputFiles[0].text)}`);
}

test("the probability of guessing is the upper tail of the binomial distribution", async () => {
  const { guessProbability } = await load("binomial");
  assert.equal(guessProbability(0, 12), 1);
  assert.equal(guessProbability(7, 8), 9 / 256); // 8 ways for seven, 1 for eight
  assert.equal(guessProbability(8, 8), 1 / 256);
  assert.ok(Math.abs(guessProbability(12, 16) - 2517 / 65536) < 1e-12); // 1820 + 560 + 120 + 16 + 1
});

test("gaps come worst first, in the direction of the measure, those without a score last", async () => {
  const { orderGaps, orderByDifference } = await load("gap_order");
  const gap = (first, frames, a, b) => ({ first, frames, scores: { a: { m: a }, b: { m: b } } });
  const gaps = [gap(10, 2, 5, 9), gap(20, 1, undefined, 1), gap(30, 7, 8, 7.5), gap(40, 2, 5, 20)];
  assert.deepEqual(orderGaps(gaps, "worst", "a", "m", "lower"), [2, 0, 3, 1]);
  assert.deepEqual(orderGaps(gaps, "worst", "a", "m", "higher"), [0, 3, 2, 1]);
  assert.deepEqual(orderGaps(gaps, "longest", "a", "m", "lower"), [2, 0, 3, 1]);
  assert.deepEqual(orderGaps(gaps, "time", "a", "m", "lower"), [0, 1, 2, 3]);
  assert.deepEqual(orderByDifference(gaps, "a", "b", "m"), [3, 0, 2, 1]);
});

test("overlapping intervals are ties, and digits end where the interval begins", async () => {
  const { standings, decimalsFor, number, clockTime } = await load("figures");
  const figure = (value, low, high) => ({ value, low, high });
  const figures = new Map([
    ["far", figure(9.4, 9, 9.8)],
    ["near", figure(8.3, 8, 8.7)],
    ["best", figure(8.1, 7.7, 8.5)],
    ["silence", figure(7.9, 7, 8)],
  ]);
  const marks = (better, some = figures) => Object.fromEntries(standings(some, better));
  assert.deepEqual(marks("lower"), { far: "behind", near: "tied", best: "tied", silence: "unranked" });
  assert.deepEqual(marks("higher"), { far: "best", near: "behind", best: "behind", silence: "unranked" });
  assert.equal(marks(undefined).best, "unranked");
  // Against the codec the paired difference counts, although the intervals overlap.
  const paired = (low, high) => {
    const one = { method: "codec", ...figure(8.3, 8, 8.7) };
    return marks(
      "lower",
      new Map([
        ["codec", one],
        ["aiplc", { ...figure(8.1, 7.7, 8.5), vsCodec: { value: -0.2, low, high } }],
      ]),
    );
  };
  assert.deepEqual(paired(-0.3, -0.1), { codec: "behind", aiplc: "best" });
  assert.deepEqual(paired(-0.5, 0.1), { codec: "tied", aiplc: "tied" });
  assert.equal(decimalsFor([figure(8.1234, 7.7, 8.5)]), 1);
  assert.equal(decimalsFor([figure(0.8342, 0.81, 0.85)]), 2);
  assert.equal(decimalsFor([figure(312, 290, 330)]), 0);
  assert.equal(decimalsFor([{ value: 470 }, { value: 3 }]), 0); // counts
  assert.equal(number(-0.04, 1), "0.0");
  assert.equal(number(-2.25, 1), "−2.3");
  assert.equal(clockTime(59.999), "1:00.00");
  assert.equal(clockTime(62.5, 0), "1:03");
});

test("a view keeps the instant under the pointer and stays in the call", async () => {
  const { zoomAbout, shift } = await load("view");
  assert.deepEqual(zoomAbout({ start: 0, end: 8 }, 6, 0.5, 10), { start: 3, end: 7 });
  assert.deepEqual(zoomAbout({ start: 6, end: 10 }, 9, 2, 10), { start: 2, end: 10 });
  assert.deepEqual(shift({ start: 6, end: 9 }, 5, 10), { start: 7, end: 10 });
});

test("spectra show a tone at its frequency and level, and only inside the recording", async () => {
  const { spectrogram, kRangeDb } = await load("spectrogram");
  const pcm = Float32Array.from({ length: 16000 }, (_, i) => 0.1 * Math.cos((2 * Math.PI * 1000 * i) / 16000));
  const request = { lane: "", from: -8000, to: 16000, columns: 3, window: 512, topDb: 0 };
  const { levels, bins } = spectrogram(pcm, request);
  const column = (c) => [...levels.slice(c * bins, (c + 1) * bins)];
  assert.deepEqual(new Set(column(0)), new Set([0]));
  const tone = column(2);
  assert.equal(tone.indexOf(Math.max(...tone)), 32); // 1000 Hz of 31.25 Hz a bin
  assert.ok(Math.abs((tone[32] / 255 - 1) * kRangeDb + 20) < 0.5); // 0.1 is 20 dB below full scale
});

test("peaks are those of the samples, and rounded to blocks only where many share a pixel", async () => {
  const { Peaks } = await load("peaks");
  const pcm = Float32Array.from({ length: 5000 }, (_, i) => Math.fround(Math.sin(i * i)));
  const peaks = new Peaks(pcm);
  const brute = (from, to) => [Math.min(...pcm.slice(from, to)), Math.max(...pcm.slice(from, to))];
  assert.equal(peaks.top, Math.max(...pcm.map(Math.abs)));
  assert.deepEqual(peaks.range(100, 300), brute(100, 300));
  assert.deepEqual(peaks.range(40.2, 40.4), brute(40, 41)); // never less than a sample
  assert.deepEqual(peaks.range(1280, 3840), brute(1280, 3840)); // ten to thirty blocks of 128
  assert.deepEqual(peaks.range(4900, 9000), brute(4900, 5000));
  assert.deepEqual(peaks.range(6000, 7000), [0, 0]);
});

test("the verdict counts losses by the measures whose interval excludes zero", async () => {
  const { verdict, widestLoss } = await load("verdict");
  const measures = [
    { id: "m", name: "M", better: "lower" },
    { id: "h", name: "H", better: "higher" },
  ];
  const report = (...losses) => ({
    methods: ["codec", "aiplc"].map((id) => ({ id })),
    losses: losses.map((_, i) => ({ id: `loss${i}` })),
    measures,
    files: [],
    figures: losses.flatMap((differences, i) =>
      differences.map((value, m) => {
        const vsCodec = { value, low: value - 1, high: value + 1 };
        return { loss: `loss${i}`, kind: "call", method: "aiplc", measure: measures[m].id, value: 0, vsCodec };
      }),
    ),
  });
  const many = report([-2, 3], [-2, 0.5], [-3, -2], [3, 0.5], [0.5, 0.5]); // better, better, both, worse, neither
  assert.equal(verdict(many, "call").lead, "aiplc is better than the codec at 2 of 5 losses and worse at 1.");
  assert.equal(
    verdict(many, "call").detail,
    "At 1 it is better in some measures and worse in others. Worse: H, M. At 1 no measure tells the two apart.",
  );
  assert.equal(widestLoss(many, "call"), "loss0"); // 2/3 + 3/3; then 3/3 + 2/3, which comes later
  assert.equal(
    verdict(report([-2, -2]), "call").lead,
    "At loss0, aiplc is better than the codec in 1 of 2 measures, worse in 1 (H).",
  );
  assert.equal(
    verdict(report([0.5, 0]), "call").lead,
    "At loss0, aiplc is not told apart from the codec in any measure.",
  );
  assert.equal(verdict({ ...many, figures: [] }, "call"), undefined);
});

test("a recording must be kept in the page", async () => {
  const { dataBytes } = await load("recording");
  assert.deepEqual([...dataBytes("data:audio/flac;base64,AAEC/w==")], [0, 1, 2, 255]);
  for (const address of ["sound.wav", "file:///sound.wav", "data:audio/wav,abc", ""])
    assert.throws(() => dataBytes(address), /not kept in the page/);
});
