// SPDX-License-Identifier: BSD-2-Clause
// A page of the report in headless Chromium, watched for errors and requests, its sound recorded in window.recorded.
import { existsSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { pathToFileURL } from "node:url";
import { chromium } from "playwright-core";
import { fillPage } from "./report_fixture.mjs";

const flags =
  "--no-sandbox --disable-gpu --no-first-run --disable-background-networking --disable-component-update --disable-sync";

// CHROMIUM: any Chrome or Chromium of 2024 or later, for systems that have none as a plain package.
const executable = process.env.CHROMIUM ?? "/usr/bin/chromium";
export const missing = existsSync(executable)
  ? false
  : `${executable}: no such program; set CHROMIUM to a Chrome or Chromium to test the page in it`;

const folder = mkdtempSync(join(tmpdir(), "aiplc-report-"));
let browser;
let pages = 0;

export async function openBrowser() {
  if (!missing) browser = await chromium.launch({ executablePath: executable, args: flags.split(" ") });
}

export async function closeBrowser() {
  await browser?.close();
  rmSync(folder, { recursive: true, force: true });
}

/** Runs in the page: keeps every sample that reaches the loudspeaker, and tosses known coins where asked. */
function instrument({ coins }) {
  const connect = AudioNode.prototype.connect;
  window.recorded = [];
  window.contexts = new Set();
  AudioNode.prototype.connect = function (target, ...rest) {
    if (target === this.context.destination && this.context instanceof AudioContext) {
      window.contexts.add(this.context);
      // Half a second: a page that draws longer than that on a busy machine would find its buffer overwritten.
      const recorder = (this.context.recorder ??= this.context.createScriptProcessor(8192, 1, 1));
      recorder.onaudioprocess = ({ inputBuffer }) => window.recorded.push(...inputBuffer.getChannelData(0));
      connect.call(recorder, target);
      connect.call(this, recorder);
      return target;
    }
    return connect.call(this, target, ...rest);
  };
  if (coins) crypto.getRandomValues = (array) => array.map((_, i) => coins[i]);
}

/** Opens a report; problems collects console errors and requests that leave the file. */
export async function openPage(data, { coins, ...options } = {}) {
  const file = join(folder, `${++pages}.html`);
  writeFileSync(file, fillPage(data));
  const address = pathToFileURL(file).href;
  const context = await browser.newContext({ viewport: { width: 1280, height: 900 }, ...options });
  const page = await context.newPage();
  const problems = [];
  page.on("console", (message) => message.type() === "error" && problems.push(message.text()));
  page.on("pageerror", (error) => problems.push(error.message));
  page.on("request", (request) => {
    if (request.url() !== address && !/^(blob|data):/.test(request.url())) problems.push(request.url());
  });
  await page.addInitScript(instrument, { coins });
  await page.goto(address);
  await page.locator("main").waitFor();
  return { page, problems };
}
