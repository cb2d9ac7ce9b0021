// SPDX-License-Identifier: BSD-2-Clause
// Builds dist/report.html: one file with its style, program and worker inside. The same input gives the same bytes.
import { readFileSync, writeFileSync, mkdirSync, readdirSync } from "node:fs";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";
import { build } from "esbuild";

const here = dirname(fileURLToPath(import.meta.url));
const target = process.argv[2] ?? join(here, "dist", "report.html");
const marker = "__AIPLC_REPORT_JSON__";
const bundled = new Set();

const options = {
  bundle: true,
  minify: true,
  write: false,
  metafile: true,
  format: "iife",
  target: ["chrome100", "firefox100", "safari15.4"],
  charset: "utf8",
  legalComments: "none", // the licences stand at the end of the page
  absWorkingDir: here,
  jsx: "automatic",
  jsxImportSource: "preact",
};

async function bundle(entry, extra = {}) {
  const result = await build({ ...options, entryPoints: [entry], ...extra });
  for (const input of Object.keys(result.metafile.inputs)) {
    const name = /node_modules\/((?:@[^/]+\/)?[^/]+)\//.exec(input)?.[1];
    if (name) bundled.add(name);
  }
  return result.outputFiles[0].text.trimEnd();
}

/** import program from "worker:./file.ts": the text of that file as a program of its own. */
const workerPlugin = {
  name: "worker",
  setup({ onResolve, onLoad }) {
    onResolve({ filter: /^worker:/ }, ({ path, resolveDir }) => ({
      path: resolve(resolveDir, path.slice("worker:".length)),
      namespace: "worker",
    }));
    onLoad({ filter: /./, namespace: "worker" }, async ({ path }) => ({
      contents: await bundle(path),
      loader: "text",
    }));
  },
};

function licences() {
  return [...bundled].sort().map((name) => {
    const folder = join(here, "node_modules", name);
    const version = JSON.parse(readFileSync(join(folder, "package.json"), "utf8")).version;
    const file = readdirSync(folder).find((entry) => /^licen[cs]e/i.test(entry));
    return `${name} ${version}\n\n${readFileSync(join(folder, file), "utf8").trim()}\n`;
  });
}

const style = await bundle("src/page.css");
const program = await bundle("src/main.tsx", { plugins: [workerPlugin] });
const parts = { STYLE: style, PROGRAM: program, LICENCES: licences().join("\n").replaceAll("--", "- -") };
const page = readFileSync(join(here, "src", "page.html"), "utf8").replace(
  /\/\*(STYLE|PROGRAM|LICENCES)\*\//g,
  (_, name) => parts[name],
);

if (page.split(marker).length !== 2) throw new Error(`the page must hold ${marker} exactly once`);
if (/<\/script/i.test(program)) throw new Error("the program would end its own script element");
mkdirSync(dirname(target), { recursive: true });
writeFileSync(target, page);
console.log(`${target}: ${Buffer.byteLength(page)} bytes, with ${[...bundled].sort().join(", ")}`);
