// SPDX-License-Identifier: BSD-2-Clause
// A small plot for each measure: the measure over the loss, a line with its interval for each method.
import { useEffect, useMemo, useRef, useState } from "preact/hooks";
import uPlot from "uplot";
import { direction, number, decimalsFor } from "./figures";
import { Badge, methodColour, methodDash } from "./method_style";
import { isReference, isShare, type Loss, type Measure, type Method, nameOf, type Report } from "./report";
import { Select } from "./select";
import { colour } from "./theme";

type Row = Report["figures"][number];

/** Losses that share an axis: those of one burst length over their share, all others one beside the other. */
interface Axis {
  id: string;
  name: string;
  losses: Loss[];
  numeric: boolean;
}

function axesOf(losses: readonly Loss[]): Axis[] {
  const axes = new Map<string, Axis>();
  for (const loss of losses) {
    const numeric = loss.percent !== undefined;
    const id = numeric ? `burst${loss.burst ?? 1}` : "others";
    const name = numeric ? `Bursts of ${loss.burst ?? 1}` : "Recorded losses";
    if (!axes.has(id)) axes.set(id, { id, name, losses: [], numeric });
    axes.get(id)!.losses.push(loss);
  }
  for (const axis of axes.values()) if (axis.numeric) axis.losses.sort((a, b) => a.percent! - b.percent!);
  return [...axes.values()];
}

/** Left out at first where there is enough without them: their values would press all others flat. */
function flattening(methods: readonly Method[]): ReadonlySet<string> {
  const ids = methods.map((m) => m.id).filter((id) => id === "silence" || isReference({ id }));
  return new Set(methods.length - ids.length >= 2 ? ids : []);
}

interface LossPlotsProps {
  report: Report;
  kind: string;
  loss: string; // the axis that holds it is shown first
  dark: boolean;
}

export function LossPlots({ report, kind, loss, dark }: LossPlotsProps) {
  const axes = axesOf(report.losses);
  const [axisId, setAxisId] = useState(() => axes.find((a) => a.losses.some((l) => l.id === loss))!.id);
  const [hidden, setHidden] = useState(() => flattening(report.methods));
  const axis = axes.find((a) => a.id === axisId) ?? axes[0]!;
  const rows = useMemo(
    () => report.figures.filter((f) => f.kind === kind && !hidden.has(f.method)),
    [report, kind, hidden],
  );
  const toggle = (id: string) => {
    const next = new Set(hidden);
    if (!next.delete(id)) next.add(id);
    setHidden(next);
  };
  const shown = report.measures.filter(
    (m) => !isShare(m) && report.figures.some((f) => f.kind === kind && f.measure === m.id),
  );
  return (
    <>
      <div class="controls">
        <div class="segments wrap" role="group" aria-label="Methods in the plots">
          {report.methods.map((method) => (
            <button
              type="button"
              key={method.id}
              aria-pressed={!hidden.has(method.id)}
              onClick={() => toggle(method.id)}
            >
              <Badge methods={report.methods} id={method.id} /> {nameOf(method)}
            </button>
          ))}
        </div>
        {axes.length > 1 && <Select label="Over" value={axis.id} options={axes} onChoose={setAxisId} />}
      </div>
      <div class="plots">
        {shown.map((measure) => (
          <LossPlot key={measure.id} measure={measure} methods={report.methods} axis={axis} rows={rows} dark={dark} />
        ))}
      </div>
    </>
  );
}

interface PlotProps {
  measure: Measure;
  methods: readonly Method[];
  axis: Axis;
  rows: readonly Row[];
  dark: boolean;
}

function LossPlot({ measure, methods, axis, rows, dark }: PlotProps) {
  const box = useRef<HTMLDivElement>(null);
  const [readout, setReadout] = useState("");
  const found = rows.filter((r) => r.measure === measure.id && axis.losses.some((l) => l.id === r.loss));

  useEffect(() => {
    const element = box.current!;
    const { options, data } = plotOf(methods, axis, found);
    const size = () => ({ width: element.clientWidth, height: 190 });
    const plot = new uPlot(
      {
        ...options,
        ...size(),
        hooks: { ...options.hooks, setCursor: [(u) => setReadout(readoutAt(u, methods, axis))] },
      },
      data,
      element,
    );
    const observer = new ResizeObserver(() => {
      if (size().width !== plot.width) plot.setSize(size());
    });
    observer.observe(element);
    return () => {
      observer.disconnect();
      plot.destroy();
    };
  }, [measure, axis.id, rows, dark]);

  return (
    <figure class="plot">
      <figcaption>
        <span>
          <strong>{nameOf(measure)}</strong>
          {measure.unit ? `, ${measure.unit}` : ""}
        </span>
        <small>{readout || direction(measure)}</small>
      </figcaption>
      <div ref={box} role="img" aria-label={describe(measure, methods, axis, found)} />
    </figure>
  );
}

/** The plot in words: all its values. */
function describe(measure: Measure, methods: readonly Method[], axis: Axis, found: readonly Row[]): string {
  const decimals = decimalsFor(found);
  const lines = methods.map((method) => {
    const points = axis.losses.flatMap((loss) => {
      const row = found.find((r) => r.method === method.id && r.loss === loss.id);
      return row ? [`${number(row.value, decimals)} at ${nameOf(loss)}`] : [];
    });
    return points.length ? `${nameOf(method)}: ${points.join(", ")}.` : "";
  });
  return `${nameOf(measure)} over ${axis.name}. ${lines.filter(Boolean).join(" ")}`;
}

/** The values under the pointer, by the key of the method. */
function readoutAt(plot: uPlot, methods: readonly Method[], axis: Axis): string {
  const index = plot.cursor.idx;
  if (index == null || (plot.cursor.left ?? -1) < 0) return "";
  const values = methods.flatMap((_, m) => {
    const value = plot.data[1 + 3 * m]?.[index];
    return value == null ? [] : [`${m + 1}: ${value.toPrecision(3)}`];
  });
  return `${nameOf(axis.losses[index]!)}:  ${values.join("   ")}`;
}

/** Three series for each method: value, lower and upper end of its interval. */
function plotOf(methods: readonly Method[], axis: Axis, found: readonly Row[]) {
  const x = axis.losses.map((loss, i) => (axis.numeric ? loss.percent! : i));
  const data: uPlot.AlignedData = [x];
  const series: uPlot.Series[] = [{}];
  const bands: uPlot.Band[] = [];
  for (const { id } of methods) {
    const at = axis.losses.map((loss) => found.find((r) => r.method === id && r.loss === loss.id));
    const stroke = colour(methodColour(methods, id));
    const first = data.length;
    data.push(
      at.map((r) => r?.value ?? null),
      at.map((r) => r?.low ?? null),
      at.map((r) => r?.high ?? null),
    );
    series.push(
      {
        stroke,
        width: 2,
        dash: methodDash(methods, id),
        points: { show: true, size: 6, fill: stroke },
        spanGaps: true,
      },
      { stroke: "transparent", points: { show: false } },
      { stroke: "transparent", points: { show: false } },
    );
    bands.push({ series: [first + 2, first + 1], fill: `${stroke}2b` });
  }
  const ink = colour("--ink-2");
  const grid = { stroke: colour("--line"), width: 1 };
  const font = "12px system-ui, sans-serif";
  const margin = x.length > 1 ? (x.at(-1)! - x[0]!) * 0.06 : 1;
  const options: Omit<uPlot.Options, "width" | "height"> = {
    series,
    bands,
    legend: { show: false },
    cursor: { y: false, drag: { x: false, y: false }, points: { show: false } },
    scales: {
      x: { time: false, range: () => [x[0]! - margin, x.at(-1)! + margin] },
      y: { range: (_, low, high) => heights(low, high) },
    },
    axes: [
      {
        stroke: ink,
        grid,
        ticks: grid,
        font,
        size: 28,
        splits: () => x,
        values: () => axis.losses.map((loss) => (axis.numeric ? `${loss.percent} %` : nameOf(loss))),
      },
      { stroke: ink, grid, ticks: { show: false }, font, size: 44, gap: 4, space: 34 },
    ],
    hooks: {
      drawAxes: [(plot) => drawCovered(plot, methods)],
      draw: [
        (plot) =>
          drawWhiskers(
            plot,
            methods,
            bands.map((b) => b.series[1] - 1),
          ),
      ],
    },
  };
  return { options, data };
}

/** The range of the values with some room; values that are all 0 lie near the bottom of a small range. */
function heights(low: number | null, high: number | null): uPlot.Range.MinMax {
  if (low === null || high === null || (low === 0 && high === 0)) return [-0.06, 1];
  return uPlot.rangeNum(low, high, 0.1, true);
}

/** Pixels within which two curves count as one. */
const kCoincide = 2;

/** Where later curves cover a curve, wider strokes in its colour beneath them, so that each of them shows. */
function drawCovered(plot: uPlot, methods: readonly Method[]): void {
  const { ctx } = plot;
  const ratio = devicePixelRatio;
  const heightAt = (m: number, i: number): number | undefined => {
    const value = plot.data[1 + 3 * m]?.[i];
    return value == null ? undefined : plot.valToPos(value, "y", true);
  };
  const covers = (later: number, m: number, i: number): boolean => {
    const [a, b] = [heightAt(later, i), heightAt(m, i)];
    return a !== undefined && b !== undefined && Math.abs(a - b) < kCoincide * ratio;
  };
  ctx.save();
  methods.forEach(({ id }, m) => {
    ctx.strokeStyle = ctx.fillStyle = colour(methodColour(methods, id));
    const later = methods.map((_, n) => n).slice(m + 1);
    plot.data[0].forEach((x, i) => {
      const above = later.filter((n) => covers(n, m, i));
      if (above.length === 0) return;
      const [px, py] = [plot.valToPos(x, "x", true), heightAt(m, i)!];
      ctx.beginPath();
      ctx.arc(px, py, (3 + 2.5 * above.length) * ratio, 0, 2 * Math.PI);
      ctx.fill();
      const along = i > 0 ? above.filter((n) => covers(n, m, i - 1)).length : 0;
      if (along === 0) return;
      ctx.lineWidth = (2 + 4 * along) * ratio;
      ctx.beginPath();
      ctx.moveTo(plot.valToPos(plot.data[0][i - 1]!, "x", true), heightAt(m, i - 1)!);
      ctx.lineTo(px, py);
      ctx.stroke();
    });
  });
  ctx.restore();
}

/** Intervals as upright lines too: a band has no width where there is one loss only. */
function drawWhiskers(plot: uPlot, methods: readonly Method[], firsts: readonly number[]): void {
  const { ctx } = plot;
  ctx.save();
  ctx.lineWidth = 1.5 * devicePixelRatio;
  firsts.forEach((first, m) => {
    ctx.strokeStyle = colour(methodColour(methods, methods[m]!.id));
    plot.data[0].forEach((x, i) => {
      const low = plot.data[first + 1]![i];
      const high = plot.data[first + 2]![i];
      if (low == null || high == null) return;
      const px = Math.round(plot.valToPos(x, "x", true));
      ctx.beginPath();
      ctx.moveTo(px, plot.valToPos(low, "y", true));
      ctx.lineTo(px, plot.valToPos(high, "y", true));
      ctx.stroke();
    });
  });
  ctx.restore();
}
