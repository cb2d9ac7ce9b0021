// SPDX-License-Identifier: BSD-2-Clause
import { render } from "preact";
import { useState } from "preact/hooks";
import { LiveRegion } from "./announce";
import { Calls } from "./calls";
import { FigureTable } from "./figure_table";
import { LossPlots } from "./loss_plots";
import { isBaseline, isShare, type Method, nameOf, type Report, readReport } from "./report";
import { Select } from "./select";
import { SourceTable } from "./source_table";
import { ThemeSwitch, useTheme } from "./theme";
import { verdict, widestLoss } from "./verdict";

function Page({ report }: { report: Report }) {
  const theme = useTheme();
  const [kind, setKind] = useState(() => fullestKind(report));
  const [loss, setLoss] = useState(() => widestLoss(report, kind));
  return (
    <>
      <header>
        <h1>
          <span>aiplc compare</span>
          <small>{when(report.created)}</small>
        </h1>
        <ThemeSwitch {...theme} />
      </header>
      <main>
        <Verdict report={report} />
        <Calls report={report} loss={loss} kind={kind} dark={theme.dark} onLoss={setLoss} />
        <Summary report={report} loss={loss} kind={kind} onLoss={setLoss} onKind={setKind} />
        <section aria-labelledby="plots-title">
          <h2 id="plots-title">Over the loss</h2>
          <LossPlots {...{ report, kind, loss }} dark={theme.dark} />
        </section>
      </main>
      <footer>
        <About report={report} />
      </footer>
      <LiveRegion />
    </>
  );
}

function Verdict({ report }: { report: Report }) {
  const kind = fullestKind(report);
  const found = verdict(report, kind);
  if (!found) return null;
  return (
    <p class="verdict">
      <strong>{found.lead}</strong> {found.detail}{" "}
      <small>
        Measured over: {nameOf(report.kinds.find((k) => k.id === kind)!)}. Better or worse means that the 95 % interval
        of the difference excludes 0.
      </small>
    </p>
  );
}

interface SummaryProps {
  report: Report;
  loss: string;
  kind: string;
  onLoss: (id: string) => void;
  onKind: (id: string) => void;
}

function Summary({ report, loss, kind, onLoss, onKind }: SummaryProps) {
  const ofLoss = report.figures.filter((f) => f.loss === loss);
  const figures = ofLoss.filter((f) => f.kind === kind);
  const shares = report.measures.filter(isShare);
  const shareIds = new Set(shares.map((m) => m.id));
  const shareFigures = ofLoss.filter((f) => shareIds.has(f.measure));
  const shareKind = shareFigures.find((f) => f.kind === "call")?.kind ?? shareFigures[0]?.kind;
  const caption = `${nameOf(report.losses.find((l) => l.id === loss)!)}, ${nameOf(report.kinds.find((k) => k.id === kind)!)}`;
  return (
    <section aria-labelledby="summary-title">
      <h2 id="summary-title">Summary</h2>
      <div class="controls">
        <Select label="Loss" value={loss} options={report.losses} onChoose={onLoss} />
        <Select label="Measured over" value={kind} options={report.kinds} onChoose={onKind} />
      </div>
      <FigureTable
        caption={caption}
        methods={report.methods}
        measures={report.measures.filter((m) => !isShare(m))}
        figures={figures}
      />
      <p class="note">
        <b class="mark">★</b> best. <b class="mark">≈</b> shares the first place: against the codec the interval of the
        difference includes 0, between other methods the intervals overlap. <b>Δ</b> difference from the codec;{" "}
        <b>≈ 0</b> where its interval includes 0. Intervals hold 95 % of a bootstrap
        {report.resampled && ` over the ${report.resampled}`}.{" "}
        {report.methods.some(isBaseline) && "Silence is a baseline and is not ranked."}
      </p>
      <OwnReferences methods={report.methods} />
      {shareFigures.length > 0 && (
        <details>
          <summary>What the frames were made of</summary>
          <SourceTable
            caption="Frames by source"
            methods={report.methods}
            measures={shares}
            figures={shareFigures.filter((f) => f.kind === shareKind)}
          />
        </details>
      )}
    </section>
  );
}

/** Names the methods that are not measured against the one without loss. */
function OwnReferences({ methods }: { methods: readonly Method[] }) {
  const enhancing = methods.filter((m) => m.enhances).map(nameOf);
  if (enhancing.length === 0) return null;
  return (
    <p class="note">
      Received speech is enhanced by: {enhancing.join(", ")}. That is no damage, so what a loss costs there is measured
      against the call without losses as the same decoder plays it, enhancer on.
    </p>
  );
}

/** The kind with figures for the most measures: the whole call, where that is measured. */
function fullestKind(report: Report): string {
  const figures = report.figures.filter((f) => !isShare({ id: f.measure }));
  const measures = (kind: string) => new Set(figures.filter((f) => f.kind === kind).map((f) => f.measure)).size;
  return report.kinds.reduce((best, k) => (measures(k.id) > measures(best.id) ? k : best)).id;
}

function when(created: string): string {
  const date = new Date(created);
  return Number.isNaN(date.getTime())
    ? created
    : date.toLocaleString("en-GB", { dateStyle: "long", timeStyle: "short" });
}

function About({ report }: { report: Report }) {
  const lines: [string, string][] = [
    ["Command", report.command],
    ["Version", report.version],
    ["Opus", report.libopus],
    ["Model", report.model],
    ["Audio", `${report.rateHz / 1000} kHz, frames of ${report.frameMs} ms, mono`],
    ...report.methods.map((m): [string, string] => [nameOf(m), aboutMethod(m)]),
  ];
  return (
    <dl class="about">
      {lines
        .filter(([, value]) => value)
        .map(([name, value]) => (
          <div key={name}>
            <dt>{name}</dt>
            <dd>{value}</dd>
          </div>
        ))}
    </dl>
  );
}

const aboutMethod = ({ about = "", decoderComplexity }: Method): string =>
  decoderComplexity === undefined ? about : `${about} Decoder complexity ${decoderComplexity}.`;

function Problem({ problem, detail }: { problem: string; detail: string }) {
  useTheme();
  return (
    <main>
      <div class="problem" role="alert">
        <h1>{problem}</h1>
        <p>{detail}</p>
      </div>
    </main>
  );
}

const result = readReport(document.getElementById("aiplc-report")?.textContent ?? "");
const root = document.getElementById("app")!;
root.textContent = "";
render("report" in result ? <Page report={result.report} /> : <Problem {...result} />, root);
