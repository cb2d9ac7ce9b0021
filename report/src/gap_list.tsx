// SPDX-License-Identifier: BSD-2-Clause
// The gaps of a call, ordered; choosing one shows it in the lanes.
import { useState } from "preact/hooks";
import { clockTime, number, signed, withUnit } from "./figures";
import { difference, type GapSort, scoreOf } from "./gap_order";
import { methodColour } from "./method_style";
import { type Gap, type Measure, type Method, nameOf } from "./report";
import { Select } from "./select";

export interface GapRanking {
  sort: GapSort;
  method: string;
  measure: string;
}

interface Props {
  gaps: readonly Gap[]; // those with sound
  all: number; // gaps of the call
  order: readonly number[];
  methods: readonly Method[];
  measures: readonly Measure[]; // those that gaps have scores of
  frameMs: number;
  ranking: GapRanking;
  chosen: number | undefined;
  onRank: (ranking: GapRanking) => void;
  onChoose: (gap: number) => void;
}

/** Rows before "show all". */
const kShort = 50;

const kSorts = [
  { id: "apart", name: "furthest from the codec" },
  { id: "worst", name: "worst first" },
  { id: "longest", name: "longest first" },
  { id: "time", name: "by time" },
];

export function GapList(props: Props) {
  const { gaps, all: count, order, methods, measures, ranking, onRank } = props;
  const [all, setAll] = useState(false);
  const measure = measures.find((m) => m.id === ranking.measure);
  const shown = all ? order : order.slice(0, kShort);
  if (gaps.length === 0) return <p class="nothing">No frame of this call was lost.</p>;
  const range = rangeOf(gaps, methods, ranking.measure);
  return (
    <section class="gaps" aria-label="Gaps">
      <h3>
        {gaps.length < count && `${gaps.length} of `}
        {count} {count === 1 ? "gap" : "gaps"}
        {gaps.length < count && " have sound"}
      </h3>
      <div class="controls">
        <Select
          label="Order"
          value={ranking.sort}
          options={kSorts}
          onChoose={(sort) => onRank({ ...ranking, sort: sort as GapSort })}
        />
        <Select
          label="Method"
          value={ranking.method}
          options={methods}
          onChoose={(method) => onRank({ ...ranking, method })}
        />
        <Select
          label="Measure"
          value={ranking.measure}
          options={measures}
          onChoose={(id) => onRank({ ...ranking, measure: id })}
        />
      </div>
      <div class="gap-rows">
        <table>
          <thead>
            <tr>
              <th scope="col">At</th>
              <th scope="col" class="right">
                Length
              </th>
              <th scope="col" class="right">
                {ranking.sort === "apart" ? "Δ codec" : "Score"}
                {measure?.unit && `, ${measure.unit}`}
              </th>
              <th scope="col" class="strip-head">
                <span class="visually-hidden">All methods</span>
              </th>
            </tr>
          </thead>
          <tbody>
            {shown.map((index) => (
              <GapRow key={index} {...props} index={index} unit={measure?.unit} range={range} />
            ))}
          </tbody>
        </table>
        {shown.length < order.length && (
          <button type="button" onClick={() => setAll(true)}>
            Show all {order.length}
          </button>
        )}
      </div>
    </section>
  );
}

type Range = readonly [number, number];

function rangeOf(gaps: readonly Gap[], methods: readonly Method[], measure: string): Range {
  const scores = gaps.flatMap((gap) => methods.flatMap(({ id }) => scoreOf(gap, id, measure) ?? []));
  return [Math.min(...scores), Math.max(...scores)];
}

function GapRow(props: Props & { index: number; unit: string | undefined; range: Range }) {
  const { index, ranking, methods, unit, range } = props;
  const gap = props.gaps[index]!;
  const apart = ranking.sort === "apart";
  const score = apart
    ? difference(gap, ranking.method, "codec", ranking.measure)
    : scoreOf(gap, ranking.method, ranking.measure);
  const at = clockTime((gap.first * props.frameMs) / 1000);
  const length = gap.frames * props.frameMs;
  const text = score === undefined ? "–" : (apart ? signed : number)(score, Math.abs(score) < 1 ? 2 : 1);
  const spoken = `Gap at ${at}, ${length} ms, ${score === undefined ? "no score" : withUnit(text, unit)}${apart ? " from the codec" : ""}`;
  const chosen = index === props.chosen;
  return (
    <tr class={chosen ? "chosen" : ""} onClick={() => props.onChoose(index)}>
      <th scope="row">
        <button type="button" class="plain" aria-label={spoken} aria-current={chosen ? "true" : undefined}>
          {at}
        </button>
      </th>
      <td class="right">{length} ms</td>
      <td class="right">{text}</td>
      <td class="strip">
        <ScoreStrip gap={gap} methods={methods} measure={ranking.measure} range={range} />
      </td>
    </tr>
  );
}

/** The scores of all methods as dots on one scale. */
function ScoreStrip({
  gap,
  methods,
  measure,
  range,
}: {
  gap: Gap;
  methods: readonly Method[];
  measure: string;
  range: Range;
}) {
  const [low, high] = range;
  const x = (score: number) => 5 + (80 * (score - low)) / Math.max(high - low, 1e-9);
  return (
    <svg viewBox="0 0 90 12" aria-hidden="true">
      <line class="rail" x1="5" x2="85" y1="6" y2="6" />
      {methods.map((method) => {
        const score = scoreOf(gap, method.id, measure);
        if (score === undefined) return null;
        return (
          <circle key={method.id} cx={x(score)} cy="6" r="3.5" fill={`var(${methodColour(methods, method.id)})`}>
            <title>{`${nameOf(method)} ${number(score, 1)}`}</title>
          </circle>
        );
      })}
    </svg>
  );
}
