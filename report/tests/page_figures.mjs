// SPDX-License-Identifier: BSD-2-Clause
// The page's words and figures: verdict, tables, plots, and what is wrong with a report.
import assert from "node:assert/strict";
import { test } from "node:test";
import { missing, openPage } from "./browser.mjs";
import { button, choice, gapNames, lanes, pageTest, showing, sound } from "./page.mjs";
import { instantOf, makeReport } from "./report_fixture.mjs";

pageTest("the summary marks the best, what is tied with it, and follows the choices", {}, async (page) => {
  const summary = page.locator("section", { hasText: "Summary" });
  const row = summary.getByRole("row", { name: /Log-spectral distance/ });
  const cells = async () =>
    (await row.getByRole("cell").allInnerTexts()).map((text) => text.replace(/\s+/g, " ").trim());
  const found = await cells();
  assert.match(found[0], /^30\.0 dB interval/); // nor is silence
  assert.match(found[4], /^8\.1 dB ≈ , shares the first place interval 7\.7–8\.5/);
  assert.match(found[2], /^8\.3 dB ≈ , shares the first place/);
  assert.match(found[1], /^9\.4 dB interval/);
  assert.match(found[4], /difference from the codec −1\.3$/);
  assert.match(found[2], /codec ≈ 0$/);
  assert.match(found[5], /^0\.0 dB interval/); // the reference is not ranked
  await choice(page, "Loss").selectOption("10 % in bursts of 1");
  assert.match((await cells())[4], /^11\.1 dB ★ , best/);
  await choice(page, "Measured over").selectOption("whole call");
  await summary.getByText("No figures for this choice.").waitFor();
  await choice(page, "Loss").selectOption("5 % in bursts of 1");
  await page
    .getByRole("row", { name: /Intelligibility/ })
    .getByText("0.83")
    .waitFor();
  await page.getByText("Received speech is enhanced by: Enhanced.").waitFor();
  assert.match(await page.locator(".about").innerText(), /About Enhanced\. Decoder complexity 10\./);
});

/** With the codec further from aiplc at 10 %, the second loss. */
function widerAtTen() {
  const data = makeReport();
  const figure = data.figures.find((f) => f.loss === "loss10" && f.method === "aiplc");
  figure.vsCodec = { value: -4, low: -5, high: -3 };
  return data;
}

pageTest("the page opens with a verdict, and where the methods differ most", { data: widerAtTen() }, async (page) => {
  await page.getByText("aiplc is better than the codec at 2 of 2 losses and worse at none.").waitFor();
  await showing(page, "0:05.00", "0:09.06"); // around the gap at 7 s
  assert.equal(await choice(page, "Loss").inputValue(), "loss10");
  const inSight = () =>
    button(page, "Play")
      .or(button(page, "Pause"))
      .evaluate((e) => {
        const { top, bottom } = e.getBoundingClientRect();
        return top >= 0 && bottom <= innerHeight;
      });
  assert.ok(await inSight(), "the player on the first screen");
  await page.evaluate(() => scrollTo(0, document.body.scrollHeight));
  assert.ok(!(await inSight()));
  await page.keyboard.press("Space");
  await sound(page, 1, 4000);
  assert.ok(await inSight(), "Space shows the player");
  const first = instantOf((await page.evaluate(() => window.recorded)).find((x) => x > 0.5));
  assert.ok(Math.abs(first - 6) < 0.4, `begins at ${first} s, shortly before the gap`);
});

/** As the command line writes it where libopus has no decoder complexity. */
function plainReport() {
  const data = makeReport();
  const known = (id) => id !== "neural" && id !== "enhanced";
  data.methods = data.methods.filter((m) => known(m.id)).map(({ id, name, about }) => ({ id, name, about }));
  data.figures = data.figures.filter((f) => known(f.method));
  for (const file of data.files)
    if (file.audio) file.audio = Object.fromEntries(Object.entries(file.audio).filter(([id]) => known(id)));
  return data;
}

pageTest(
  "without an enhancer nothing speaks of one, and methods keep their colours",
  { data: plainReport() },
  async (page) => {
    await lanes(page).nth(3).waitFor();
    assert.equal(await lanes(page).count(), 4);
    assert.doesNotMatch(await page.locator("body").innerText(), /enhance|complexity/i);
    await page.keyboard.press("4");
    await page.getByRole("status").getByText("Hearing No loss").waitFor({ state: "attached" });
    await page.keyboard.press("?");
    assert.match(await page.getByRole("dialog", { name: "Keys" }).innerText(), /1\s*–\s*4\s/);
    await page.keyboard.press("2"); // the list keeps keys from the player
    await page.keyboard.press("Escape");
    assert.equal(await button(page, "No loss").getAttribute("aria-pressed"), "true");
    const fill = await button(page, "aiplc")
      .locator(".badge")
      .evaluate((badge) => getComputedStyle(badge).backgroundColor);
    assert.equal(fill, "rgb(0, 103, 172)");
  },
);

pageTest("frames by source have a bar, a colour and words, also those of a source unknown here", {}, async (page) => {
  await page.getByText("What the frames were made of").click();
  await page.getByText("What its frames were made of").click();
  const tables = page.getByRole("table", { name: /frames by source/i });
  for (const [index, bar, value] of [
    [1, /^aiplc\. Frames decoded: 98\.0 %, Single lost frames by the network: 1\.0 %, By the codec: 1\.0 %$/, "1 %"],
    [0, /^aiplc\. .*network: 1\.0 %, By the codec: 0\.8 %, dreamt: 0\.2 %$/, "5 frames"],
  ]) {
    const table = tables.nth(index);
    const parts = table.getByRole("img", { name: bar }).locator("span");
    await parts.first().waitFor();
    const [decoded, second] = await parts.evaluateAll((all) =>
      all.map((e) => [e.offsetWidth, getComputedStyle(e).backgroundColor]),
    );
    assert.ok(decoded[0] > 20 * second[0], `${decoded[0]} and ${second[0]} pixels`);
    assert.equal(second[1], "rgb(0, 140, 140)");
    const row = table.getByRole("row", { name: /^Single lost frames/ });
    assert.match((await row.getByRole("cell").allInnerTexts())[4].replace(/\s+/g, " "), new RegExp(`^${value}`));
    assert.equal(await row.locator(".swatch").evaluate((e) => getComputedStyle(e).backgroundColor), second[1]);
  }
});

function manyLosses() {
  const data = makeReport();
  data.losses.push({ id: "b3", name: "5 % in bursts of 3", percent: 5, burst: 3 }, { id: "t", name: "wifi.txt" });
  for (const i of [1, 4]) data.figures.push({ ...data.figures[i], loss: "t", value: 6.5, low: 6, high: 7 });
  data.files[0].gaps = Array.from({ length: 70 }, (_, i) => ({ ...data.files[0].gaps[i % 3], first: 7 * i }));
  return data;
}

pageTest(
  "plots say their values, hide methods and keep recorded losses apart",
  { data: manyLosses() },
  async (page) => {
    const plot = page.locator(".plot [role=img]").first();
    const says = async () => await plot.getAttribute("aria-label");
    assert.match(await says(), /aiplc: 8\.1 at 5 % in bursts of 1, 11\.1 at 10 % in bursts of 1/);
    assert.doesNotMatch(await says(), /Silence/);
    const plots = page.locator("section", { hasText: "Over the loss" });
    await plots.getByRole("button", { name: "Silence" }).click();
    assert.match(await says(), /Silence: 30\.0/);
    await choice(page, "Over").selectOption("Recorded losses");
    assert.match(await says(), /aiplc: 6\.5 at wifi\.txt\.$/);
    const painted = await plot.locator("canvas").evaluate((canvas) => {
      const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
      const has = (test) => data.some((value, i) => i % 4 === 3 && value === 255 && test(data[i - 3], data[i - 1]));
      return [has((red, blue) => blue > 150 && red < 40), has((red, blue) => blue < 40 && red > 150)];
    });
    assert.deepEqual(painted, [true, true], "points of aiplc and of the codec, which lie on each other");
    assert.equal((await gapNames(page)).length, 50);
    await page.getByRole("button", { name: "Show all 70" }).click();
    assert.equal((await gapNames(page)).length, 70);
  },
);

pageTest("a call without recordings shows its figures", {}, async (page) => {
  await choice(page, "Call").selectOption("second.wav (figures only)");
  await page.getByText("The recordings of this call were left out").waitFor();
  await page
    .locator("details[open]")
    .getByRole("row", { name: /Log-spectral/ })
    .getByText("9.1")
    .waitFor();
  assert.equal(await button(page, "Play").count(), 0);
});

test("a page without a whole report says what is wrong", { skip: missing }, async () => {
  const broken = makeReport();
  broken.files[0].gaps = [{ first: "x", frames: 1 }];
  const cases = [
    ["__AIPLC_" + "REPORT_JSON__", /holds no report yet/],
    [JSON.stringify(makeReport()).slice(0, 500), /cannot be read.*cut off/s],
    [{ ...makeReport(), format: "aiplc-compare-9" }, /“aiplc-compare-1”.*“aiplc-compare-9”/s],
    [broken, /files\.0\.gaps\.0\.first/],
  ];
  for (const [data, message] of cases) {
    const { page, problems } = await openPage(data);
    assert.match(await page.getByRole("alert").innerText(), message);
    assert.deepEqual(problems, []);
    await page.context().close();
  }
});
