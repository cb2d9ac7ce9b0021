// SPDX-License-Identifier: BSD-2-Clause
// The calls of the chosen loss: which one, its player, its figures.
import { useEffect, useMemo, useState } from "preact/hooks";
import { CallPlayer } from "./call_player";
import { FigureTable } from "./figure_table";
import { type Decoded, decodeAll } from "./recording";
import { type CallFile, isShare, nameOf, type Report } from "./report";
import { Select } from "./select";
import { ShortcutHelp } from "./shortcuts";
import { callSources, SourceTable } from "./source_table";
import { Timeline } from "./timeline";
import { widestCall } from "./verdict";

interface Props {
  report: Report;
  loss: string;
  kind: string;
  dark: boolean;
  onLoss: (loss: string) => void;
}

export function Calls({ report, loss, kind, dark, onLoss }: Props) {
  const files = report.files.filter((f) => f.loss === loss);
  const [name, setName] = useState(() => widestCall(report, files)?.name ?? "");
  const file = files.find((f) => f.name === name) ?? files[0];
  const options = files.map((f) => ({
    id: f.name,
    name: f.name + (f.audio ? (f.excerpts ? " (excerpts)" : "") : " (figures only)"),
  }));
  const step = (by: number) => setName(files[(files.indexOf(file!) + by + files.length) % files.length]!.name);
  return (
    <section aria-labelledby="calls-title">
      <h2 id="calls-title">Calls</h2>
      <div class="controls">
        {file && <Select label="Call" value={file.name} options={options} onChoose={setName} />}
        {files.length > 1 && (
          <div class="segments" role="group" aria-label="Step through the calls">
            <button type="button" aria-label="Previous call" onClick={() => step(-1)}>
              ‹
            </button>
            <button type="button" aria-label="Next call" onClick={() => step(1)}>
              ›
            </button>
          </div>
        )}
        <Select label="Loss" value={loss} options={report.losses} onChoose={onLoss} />
        <ShortcutHelp methods={report.methods.length} />
      </div>
      {file ? (
        <Call key={`${file.loss}\n${file.name}`} {...{ report, file, kind, dark }} />
      ) : (
        <p class="nothing">The report keeps no call with this loss.</p>
      )}
    </section>
  );
}

function Call({ report, file, kind, dark }: { report: Report; file: CallFile; kind: string; dark: boolean }) {
  const timeline = useMemo(() => new Timeline(file, report.frameMs), [file]);
  const decoded = useDecoded(file, report.rateHz, timeline);
  const figures = file.figures.filter((f) => f.kind === kind);
  const kindName = nameOf(report.kinds.find((k) => k.id === kind)!);
  const lostFrames = file.gaps.reduce((sum, gap) => sum + gap.frames, 0);
  const kept = ((file.excerpts ?? []).reduce((sum, e) => sum + e.frames, 0) * report.frameMs) / 1000;
  const seconds = (file.frames * report.frameMs) / 1000;
  return (
    <>
      <p class="note">
        {seconds.toFixed(1)} s, {file.gaps.length} {file.gaps.length === 1 ? "gap" : "gaps"}: {lostFrames} of{" "}
        {file.frames} frames lost ({((100 * lostFrames) / Math.max(1, file.frames)).toFixed(1)} %)
        {file.audio && (
          <>
            , marked <span class="lost-sample" />
          </>
        )}
        .
        {!file.audio &&
          " The recordings of this call were left out of the report to keep it small; its figures are here."}
        {file.excerpts &&
          ` The report keeps excerpts of the recordings, ${kept.toFixed(1)} s around the worst gaps and typical ones.`}
        {(!file.audio || file.excerpts) &&
          report.audioNeededMb !== undefined &&
          ` With --audio-limit ${report.audioNeededMb} it keeps all of them.`}
      </p>
      {file.audio && !decoded && <p class="waiting">Decoding the recordings …</p>}
      {decoded && decoded.recordings.size > 0 && <CallPlayer {...{ report, file, timeline, decoded, dark }} />}
      {decoded?.recordings.size === 0 && (
        <p class="problem" role="alert">
          The recordings of this call cannot be played: {[...decoded.failures.values()][0] ?? "there are none"}.
        </p>
      )}
      <details open={!file.audio}>
        <summary>Figures of this call: {kindName}</summary>
        <FigureTable
          caption={`${file.name}: ${kindName}`}
          methods={report.methods}
          measures={report.measures.filter((m) => !isShare(m))}
          figures={figures}
        />
      </details>
      {Object.keys(file.sources).length > 0 && (
        <details>
          <summary>What its frames were made of</summary>
          <SourceTable
            caption={`${file.name}: frames by source`}
            methods={report.methods}
            {...callSources(file, report.measures)}
          />
        </details>
      )}
    </>
  );
}

/** Decoding begins once the page stands. */
function useDecoded(file: CallFile, rateHz: number, timeline: Timeline): Decoded | undefined {
  const [decoded, setDecoded] = useState<Decoded>();
  useEffect(() => {
    let wanted = true;
    if (file.audio) void decodeAll(file.audio, rateHz, timeline.joins).then((result) => wanted && setDecoded(result));
    return () => void (wanted = false);
  }, []);
  return decoded;
}
