// SPDX-License-Identifier: BSD-2-Clause
// Shows the sources of the frames that each method played: one bar for all frames, and a row for each source.
import { FigureTable } from "./figure_table";
import { number } from "./figures";
import { type CallFile, type Figure, isShare, type Measure, type Method, nameOf, sourceOf } from "./report";
import { sourceColour } from "./source_swatch";

interface Props {
  caption: string;
  methods: readonly Method[];
  measures: readonly Measure[]; // one for each source
  figures: readonly Figure[];
}

export function SourceTable({ caption, methods, measures, figures }: Props) {
  const cell = (method: Method) => (
    <SourceBar method={method} measures={measures} figures={figures.filter((f) => f.method === method.id)} />
  );
  return <FigureTable {...{ caption, methods, measures, figures }} lead={{ name: "All frames", cell }} />;
}

/** The frames of one call by source. names: the measures of the report, which know the sources in words. */
export function callSources(file: CallFile, names: readonly Measure[]): { measures: Measure[]; figures: Figure[] } {
  const used = new Set(Object.values(file.sources).flatMap((counts) => Object.keys(counts)));
  const known = names.filter((m) => isShare(m) && used.has(sourceOf(m)));
  const strange = [...used].filter((source) => !known.some((m) => sourceOf(m) === source));
  return {
    measures: [...known, ...strange.map((source) => ({ id: `share.${source}`, name: source }))].map(({ id, name }) => ({
      id,
      name,
      unit: "frames",
    })),
    figures: Object.entries(file.sources).flatMap(([method, counts]) =>
      Object.entries(counts).map(([source, value]) => ({ method, measure: `share.${source}`, kind: "", value })),
    ),
  };
}

function SourceBar({
  method,
  measures,
  figures,
}: {
  method: Method;
  measures: readonly Measure[];
  figures: readonly Figure[];
}) {
  const total = figures.reduce((sum, f) => sum + f.value, 0);
  const parts = measures.flatMap((measure) => {
    const percent = (100 * (figures.find((f) => f.measure === measure.id)?.value ?? 0)) / Math.max(total, 1e-9);
    return percent > 0 ? [{ measure, percent, text: `${nameOf(measure)}: ${number(percent, 1)} %` }] : [];
  });
  if (parts.length === 0) return <>–</>;
  return (
    <div class="source-bar" role="img" aria-label={`${nameOf(method)}. ${parts.map((p) => p.text).join(", ")}`}>
      {parts.map(({ measure, percent, text }) => (
        <span key={measure.id} title={text} style={`width: ${percent}%; background: ${sourceColour(measure)}`} />
      ))}
    </div>
  );
}
