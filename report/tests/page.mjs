// SPDX-License-Identifier: BSD-2-Clause
// Steps of the tests of the page in a browser, by real keys and clicks.
import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { closeBrowser, missing, openBrowser, openPage } from "./browser.mjs";
import { makeReport } from "./report_fixture.mjs";

before(openBrowser);
after(closeBrowser);

/** A test on an opened page, which ends with no error and no request. */
export function pageTest(name, options, body) {
  test(name, { timeout: 60000, skip: missing }, async () => {
    const { page, problems } = await openPage(options.data ?? makeReport(), options);
    page.setDefaultTimeout(20000);
    await body(page);
    assert.deepEqual(problems, []);
    await page.context().close();
  });
}

export const lanes = (page) => page.locator(".lane canvas");
export const shown = async (page) => {
  const label = await lanes(page).first().getAttribute("aria-label");
  return label.match(/\d+:[\d.]+/g).map((text) => Number(text.split(":")[0]) * 60 + Number(text.split(":")[1]));
};
export const showing = (page, from, to) =>
  page
    .getByRole("img", { name: `from ${from} to ${to}` })
    .first()
    .waitFor();
export const button = (page, name) => page.locator(".player").getByRole("button", { name, exact: true });
export const choice = (page, name) => page.getByRole("combobox", { name, exact: true }).first();
/** Waits for that many samples on one side of zero. */
export const sound = (page, side, count) =>
  page.waitForFunction(([s, n]) => window.recorded.filter((x) => s * x > 0.1).length > n, [side, count]);
/** Waits until the newest samples lie on one side. */
export const soundsNow = (page, side) => page.waitForFunction((s) => s * window.recorded.at(-1) > 0.2, side);
export const gapNames = (page) =>
  page.locator(".gaps tbody button").evaluateAll((all) => all.map((b) => b.getAttribute("aria-label")));

/** Steps from sample to sample once sound is there; a hard cut between two methods makes one near 1. */
export const greatestStep = (samples) =>
  samples.slice(1).reduce((top, x, i) => Math.max(top, Math.abs(x - samples[i])), 0);
