// SPDX-License-Identifier: BSD-2-Clause
// How the method of interest stands against the codec, and where the two differ most.
import { showsNothing } from "./figures";
import { difference, orderByDifference } from "./gap_order";
import {
  type CallFile,
  isBaseline,
  isReference,
  isShare,
  type Loss,
  type Measure,
  type Method,
  nameOf,
  type Report,
} from "./report";

/** aiplc where it was played, else the first method that was measured against the codec. */
export const subjectOf = (methods: readonly Method[]): Method | undefined =>
  methods.find((m) => m.id === "aiplc") ?? methods.find((m) => !isReference(m) && !isBaseline(m) && m.id !== "codec");

interface Comparison {
  loss: Loss;
  measures: number; // with a difference from the codec
  better: Measure[]; // those whose interval excludes 0, by the measure's direction
  worse: Measure[];
}

function compareAt(report: Report, kind: string, method: string, loss: Loss): Comparison {
  const result: Comparison = { loss, measures: 0, better: [], worse: [] };
  for (const measure of report.measures) {
    if (isShare(measure) || (measure.better !== "lower" && measure.better !== "higher")) continue;
    const difference = report.figures.find(
      (f) => f.loss === loss.id && f.kind === kind && f.method === method && f.measure === measure.id,
    )?.vsCodec;
    if (!difference) continue;
    ++result.measures;
    if (showsNothing(difference)) continue;
    (difference.value < 0 === (measure.better === "lower") ? result.better : result.worse).push(measure);
  }
  return result;
}

/** The outcome in words: the first sentence says it, the second what stands against it. Undefined without differences. */
export function verdict(report: Report, kind: string): { lead: string; detail: string } | undefined {
  const subject = subjectOf(report.methods);
  if (!subject) return undefined;
  const all = report.losses.map((loss) => compareAt(report, kind, subject.id, loss)).filter((c) => c.measures > 0);
  if (all.length === 0) return undefined;
  return all.length === 1 ? verdictOfOne(nameOf(subject), all[0]!) : verdictOfMany(nameOf(subject), all);
}

function verdictOfOne(name: string, { loss, measures, better, worse }: Comparison) {
  const parts = [
    better.length > 0 && `better than the codec in ${better.length} of ${measures} measures`,
    worse.length > 0 && `worse ${better.length ? "" : "than the codec "}in ${worse.length} (${names(worse)})`,
  ].filter(Boolean);
  const open = measures - better.length - worse.length;
  return {
    lead: `At ${nameOf(loss)}, ${name} is ${parts.join(", ") || "not told apart from the codec in any measure"}.`,
    detail:
      parts.length && open ? `${open === 1 ? "One measure does" : `${open} measures do`} not tell the two apart.` : "",
  };
}

function verdictOfMany(name: string, all: readonly Comparison[]) {
  const better = all.filter((c) => c.better.length > 0 && c.worse.length === 0);
  const worse = all.filter((c) => c.worse.length > 0 && c.better.length === 0);
  const mixed = all.filter((c) => c.worse.length > 0 && c.better.length > 0);
  const even = all.length - better.length - worse.length - mixed.length;
  const of = (count: number) => (count === 0 ? "none" : String(count));
  const against = [...new Set([...mixed, ...worse].flatMap((c) => c.worse))];
  return {
    lead: `${name} is better than the codec at ${of(better.length)} of ${all.length} losses and worse at ${of(worse.length)}.`,
    detail: [
      mixed.length > 0 && `At ${mixed.length} it is better in some measures and worse in others.`,
      against.length > 0 && `Worse: ${names(against)}.`,
      even > 0 && `At ${even} no measure tells the two apart.`,
    ]
      .filter(Boolean)
      .join(" "),
  };
}

const names = (measures: readonly Measure[]) => measures.map(nameOf).join(", ");

/**
 * The loss at which the method of interest differs most from the codec. Each measure counts by its difference relative
 * to its greatest one at any loss, so that decibels and semitones weigh alike; differences that may be 0 do not count.
 */
export function widestLoss(report: Report, kind: string): string {
  const subject = subjectOf(report.methods)?.id;
  const heard = report.losses.filter((l) => report.files.some((f) => f.loss === l.id && f.audio));
  const losses = heard.length > 0 ? heard : report.losses;
  const shown = report.figures.filter(
    (f) =>
      f.method === subject &&
      f.kind === kind &&
      f.vsCodec &&
      !showsNothing(f.vsCodec) &&
      losses.some((l) => l.id === f.loss),
  );
  const greatest = new Map<string, number>();
  for (const { measure, vsCodec } of shown)
    greatest.set(measure, Math.max(greatest.get(measure) ?? 0, Math.abs(vsCodec!.value)));
  const width = (loss: Loss) =>
    shown
      .filter((f) => f.loss === loss.id)
      .reduce((sum, f) => sum + Math.abs(f.vsCodec!.value) / greatest.get(f.measure)!, 0);
  return losses.reduce((best, loss) => (width(loss) > width(best) ? loss : best)).id;
}

/** Of the calls with sound, the one whose gaps hold the greatest difference from the codec by the first measure. */
export function widestCall(report: Report, files: readonly CallFile[]): CallFile | undefined {
  const heard = files.filter((f) => f.audio);
  const subject = subjectOf(report.methods)?.id ?? "";
  const measure = report.measures[0]?.id ?? "";
  const width = ({ gaps }: CallFile): number => {
    const gap = gaps[orderByDifference(gaps, subject, "codec", measure)[0] ?? -1];
    return gap ? Math.abs(difference(gap, subject, "codec", measure) ?? 0) : -1;
  };
  return heard.length > 0 ? heard.reduce((best, file) => (width(file) > width(best) ? file : best)) : files[0];
}
