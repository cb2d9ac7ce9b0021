// SPDX-License-Identifier: BSD-2-Clause
// The data of a report as `aiplc compare` writes it, and the check that it is whole.
import * as v from "valibot";

const interval = {
  value: v.number(),
  /** Ends of the 95 % bootstrap interval; absent where there was too little to draw from. */
  low: v.nullish(v.number()),
  high: v.nullish(v.number()),
  /** Frames, joins or calls the value was taken from. */
  count: v.optional(v.number()),
};

const fileFigure = v.object({
  method: v.string(),
  kind: v.string(),
  measure: v.string(),
  ...interval,
  /** Difference from the codec in the same draws; absent for the codec itself. */
  vsCodec: v.nullish(v.object(interval)),
});

const method = v.object({
  id: v.string(),
  name: v.optional(v.string()),
  about: v.optional(v.string()),
  /** Of its Opus decoder; absent where libopus has no such setting. */
  decoderComplexity: v.optional(v.number()),
  /** Its decoder changes received speech, and its reference is the call without losses by that decoder. */
  enhances: v.optional(v.boolean(), false),
});

const loss = v.object({
  id: v.string(),
  name: v.optional(v.string()),
  percent: v.optional(v.number()),
  burst: v.optional(v.number()),
});

const measure = v.object({
  id: v.string(),
  name: v.optional(v.string()),
  unit: v.optional(v.string()),
  better: v.optional(v.string()),
});

const frames = v.object({
  first: v.pipe(v.number(), v.integer(), v.minValue(0)),
  frames: v.pipe(v.number(), v.integer(), v.minValue(1)),
});

const gap = v.object({
  ...frames.entries,
  /** Score by measure, by method. */
  scores: v.optional(v.record(v.string(), v.record(v.string(), v.nullable(v.number()))), {}),
});

const file = v.object({
  name: v.string(),
  loss: v.string(),
  frames: v.number(),
  gaps: v.array(gap),
  figures: v.optional(v.array(fileFigure), []),
  sources: v.optional(v.record(v.string(), v.record(v.string(), v.number())), {}),
  /** The parts of the call that its recordings hold, one behind the other; absent where they hold all of it. */
  excerpts: v.optional(v.pipe(v.array(frames), v.minLength(1))),
  /** Data address of a mono recording, by method. */
  audio: v.optional(v.record(v.string(), v.string())),
});

const schema = v.object({
  format: v.literal("aiplc-compare-1"),
  created: v.optional(v.string(), ""),
  command: v.optional(v.string(), ""),
  version: v.optional(v.string(), ""),
  libopus: v.optional(v.string(), ""),
  model: v.optional(v.string(), ""),
  rateHz: v.pipe(v.number(), v.minValue(8000), v.maxValue(96000)),
  frameMs: v.pipe(v.number(), v.minValue(1), v.maxValue(120)),
  /** The unit that the bootstrap resampled: "calls" or "gaps". */
  resampled: v.optional(v.string(), ""),
  methods: v.pipe(v.array(method), v.minLength(1)),
  losses: v.pipe(v.array(loss), v.minLength(1)),
  measures: v.array(measure),
  kinds: v.pipe(v.array(v.object({ id: v.string(), name: v.optional(v.string()) })), v.minLength(1)),
  figures: v.array(v.object({ loss: v.string(), ...fileFigure.entries })),
  files: v.array(file),
  /** The --audio-limit that keeps all recordings, MB; absent where the page holds them all. */
  audioNeededMb: v.optional(v.number()),
});

export type Report = v.InferOutput<typeof schema>;
export type Method = Report["methods"][number];
export type Loss = Report["losses"][number];
export type Measure = Report["measures"][number];
export type Figure = v.InferOutput<typeof fileFigure>;
export type Difference = NonNullable<Figure["vsCodec"]>;
export type CallFile = Report["files"][number];
export type Gap = CallFile["gaps"][number];

export type ReadResult = { report: Report } | { problem: string; detail: string };

const remedy = "Write the page again with “aiplc compare”.";

export function readReport(text: string): ReadResult {
  if (!text.trim().startsWith("{"))
    return {
      problem: "This page holds no report yet.",
      detail: "It is the empty form that “aiplc compare” fills in. Open the file which that command wrote.",
    };
  let data: unknown;
  try {
    data = JSON.parse(text);
  } catch (error) {
    return {
      problem: "The report’s data cannot be read.",
      detail: `The file was cut off or changed: ${(error as Error).message}. ${remedy}`,
    };
  }
  const format = (data as { format?: unknown }).format;
  if (format !== "aiplc-compare-1")
    return {
      problem: "This page cannot show a report of this format.",
      detail: `It reads “aiplc-compare-1”; the data says “${String(format ?? "nothing")}”. ${remedy}`,
    };
  const checked = v.safeParse(schema, data);
  if (checked.success) return { report: checked.output };
  const issue = checked.issues[0];
  return {
    problem: "The report’s data is incomplete.",
    detail: `At ${v.getDotPath(issue) ?? "the top"}: ${issue.message}. ${remedy}`,
  };
}

/** The method without loss is what the others are held against, never a contender. */
export const isReference = (method: { id: string }): boolean => method.id === "ideal";
/** Playing nothing is the lower end of the scale. It is measured, but it does not compete. */
export const isBaseline = (method: { id: string }): boolean => method.id === "silence";

export const nameOf = (named: { id: string; name?: string | undefined }): string => named.name || named.id;

const kShare = "share.";

/** A share of the frames: of those made of one source. */
export const isShare = (measure: { id: string }): boolean => measure.id.startsWith(kShare);
export const sourceOf = (share: Measure): string => share.id.slice(kShare.length);
