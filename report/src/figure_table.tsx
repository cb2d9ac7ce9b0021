// SPDX-License-Identifier: BSD-2-Clause
// Measures down, methods across: each figure with its interval, the best and what cannot be told from it marked.
// The roles are written out because a narrow page lays the rows out as grids, which takes them away.
import { type ComponentChildren } from "preact";
import { decimalsFor, direction, number, showsNothing, signed, type Standing, standings, withUnit } from "./figures";
import { MethodName } from "./method_style";
import {
  type Difference,
  type Figure,
  isBaseline,
  isReference,
  isShare,
  type Measure,
  type Method,
  nameOf,
} from "./report";
import { SourceSwatch } from "./source_swatch";

interface Props {
  caption: string;
  methods: readonly Method[];
  measures: readonly Measure[];
  figures: readonly Figure[]; // of one kind
  /** A row of another sort above the measures. */
  lead?: { name: string; cell: (method: Method) => ComponentChildren };
}

export function FigureTable({ caption, methods, measures, figures, lead }: Props) {
  const rows = measures
    .map((measure) => ({ measure, found: figures.filter((f) => f.measure === measure.id) }))
    .filter(({ found }) => found.length > 0);
  if (rows.length === 0) return <p class="nothing">No figures for this choice.</p>;
  return (
    <table role="table" class="figures" style={`--methods: ${methods.length}`}>
      <caption class="visually-hidden">{caption}</caption>
      <thead role="rowgroup">
        <tr role="row">
          <th scope="col" role="columnheader">
            <span class="visually-hidden">Measure</span>
          </th>
          {methods.map((method) => (
            <th scope="col" role="columnheader" key={method.id}>
              <MethodName methods={methods} id={method.id} />
              {isReference(method) && <small>reference</small>}
              {isBaseline(method) && <small>baseline</small>}
            </th>
          ))}
        </tr>
      </thead>
      <tbody role="rowgroup">
        {lead && (
          <tr role="row">
            <th scope="row" role="rowheader">
              {lead.name}
            </th>
            {methods.map((method) => (
              <td role="cell" key={method.id}>
                {lead.cell(method)}
              </td>
            ))}
          </tr>
        )}
        {rows.map(({ measure, found }) => (
          <Row key={measure.id} measure={measure} methods={methods} found={found} />
        ))}
      </tbody>
    </table>
  );
}

function Row({ measure, methods, found }: { measure: Measure; methods: readonly Method[]; found: readonly Figure[] }) {
  const byMethod = new Map(found.map((figure) => [figure.method, figure]));
  const contenders = new Map([...byMethod].filter(([id]) => !isReference({ id })));
  const standing = standings(contenders, measure.better);
  const decimals = decimalsFor(found);
  const scale = direction(measure) ? scaleOf([...contenders.values()]) : undefined;
  const unit = measure.unit ? `, ${measure.unit}` : "";
  return (
    <tr role="row">
      <th scope="row" role="rowheader">
        {isShare(measure) && <SourceSwatch measure={measure} />}
        {nameOf(measure)}
        <small>{`${direction(measure)}${unit}`.replace(/^, /, "")}</small>
      </th>
      {methods.map((method) => (
        <FigureCell
          key={method.id}
          figure={byMethod.get(method.id)}
          standing={standing.get(method.id) ?? "unranked"}
          unit={measure.unit}
          decimals={decimals}
          scale={isReference(method) ? undefined : scale}
          difference={isReference(method) ? undefined : byMethod.get(method.id)?.vsCodec}
        />
      ))}
    </tr>
  );
}

type Scale = (value: number) => number; // to percent of the cell's width

/** Covers all methods, but not one far off, which would press the others into a point: that one ends at the edge. */
function scaleOf(figures: readonly Figure[]): Scale | undefined {
  const sorted = [...figures].sort((a, b) => a.value - b.value);
  const reach = (some: readonly Figure[]): [number, number] => [
    Math.min(...some.map((f) => f.low ?? f.value)),
    Math.max(...some.map((f) => f.high ?? f.value)),
  ];
  const width = ([low, high]: [number, number]) => high - low;
  const all = reach(sorted);
  const kept = [reach(sorted.slice(0, -1)), reach(sorted.slice(1))].find(
    (part) => sorted.length > 2 && width(part) > 0 && width(all) > kFarOff * width(part),
  );
  const [low, high] = kept ?? all;
  return high > low ? (value) => Math.min(100, Math.max(0, (100 * (value - low)) / (high - low))) : undefined;
}

/** A method that stretches the scale by more than this factor is far off. */
const kFarOff = 3;

const kMarks: Record<Standing, { sign: string; text: string } | undefined> = {
  best: { sign: "★", text: "best" },
  tied: { sign: "≈", text: "shares the first place" },
  behind: undefined,
  unranked: undefined,
};

interface CellProps {
  figure: Figure | undefined;
  standing: Standing;
  unit: string | undefined;
  decimals: number;
  scale: Scale | undefined;
  difference: Difference | null | undefined;
}

function FigureCell({ figure, standing, unit, decimals, scale, difference }: CellProps) {
  if (!figure)
    return (
      <td role="cell" class="absent">
        <span aria-hidden="true">–</span>
        <span class="visually-hidden">no data</span>
      </td>
    );
  const mark = kMarks[standing];
  const { value, low, high, count } = figure;
  const hasInterval = low != null && high != null;
  return (
    <td
      role="cell"
      class={standing}
      title={count === undefined ? undefined : `from ${count.toLocaleString("en")} observations`}
    >
      <span class="value">
        {number(value, decimals)}
        <span class="visually-hidden">{withUnit("", unit)}</span>
        {mark && (
          <span class="mark" title={mark.text}>
            <span aria-hidden="true">{mark.sign}</span>
            <span class="visually-hidden">, {mark.text}</span>
          </span>
        )}
      </span>
      {hasInterval && (
        <small>
          <span class="visually-hidden">interval </span>
          {number(low, decimals)}–{number(high, decimals)}
        </small>
      )}
      {scale && (
        <svg class="whisker" viewBox="-2 0 104 6" preserveAspectRatio="none" aria-hidden="true">
          <line class="rail" x1="0" x2="100" y1="3" y2="3" />
          {hasInterval && (
            <line class="span" x1={scale(low)} x2={Math.max(scale(high), scale(low) + 1)} y1="3" y2="3" />
          )}
          <line class="point" x1={scale(value)} x2={scale(value)} y1="0" y2="6" />
        </svg>
      )}
      {difference && <VersusCodec difference={difference} decimals={decimals} />}
    </td>
  );
}

function VersusCodec({ difference, decimals }: { difference: Difference; decimals: number }) {
  const { value, low, high } = difference;
  const nothing = showsNothing(difference);
  const interval =
    low == null || high == null ? "" : `, interval ${signed(low, decimals)} to ${signed(high, decimals)}`;
  return (
    <small class="versus" title={`Difference from the codec ${signed(value, decimals)}${interval}`}>
      <span aria-hidden="true">Δ </span>
      <span class="visually-hidden">difference from the codec </span>
      {nothing ? "≈ 0" : signed(value, decimals)}
    </small>
  );
}
