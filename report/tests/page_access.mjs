// SPDX-License-Identifier: BSD-2-Clause
// Themes, small screens and the keyboard.
import assert from "node:assert/strict";
import { button, choice, lanes, pageTest, showing } from "./page.mjs";

pageTest("dark and light follow the system and the switch", { colorScheme: "dark" }, async (page) => {
  const paper = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  const corner = () =>
    page.waitForFunction(() => {
      const canvas = document.querySelector(".lane canvas");
      const [r, , , alpha] = canvas?.getContext("2d").getImageData(5, canvas.height - 60, 1, 1).data ?? [];
      return alpha === 255 ? (r < 80 ? "dark" : "light") : undefined;
    });
  assert.equal(await paper(), "rgb(15, 18, 22)");
  assert.equal(await (await corner()).jsonValue(), "dark");
  await page.getByRole("button", { name: "Light" }).click();
  assert.equal(await paper(), "rgb(246, 247, 248)");
  await page.waitForFunction(
    () => document.querySelector(".lane canvas").getContext("2d").getImageData(5, 60, 1, 1).data[0] > 200,
  );
  await page.reload();
  assert.equal(await paper(), "rgb(246, 247, 248)");
});

const phone = { viewport: { width: 360, height: 740 }, hasTouch: true };

pageTest("a phone shows everything without scrolling sideways", phone, async (page) => {
  const wide = () =>
    page.evaluate(() => {
      const outside = (e) => e.getBoundingClientRect().right > innerWidth + 0.5 && !e.closest(".visually-hidden");
      return [...document.querySelectorAll("main *")].filter(outside).map((e) => e.outerHTML.slice(0, 80));
    });
  await lanes(page).nth(5).waitFor();
  const name = await button(page, "Enhanced").locator(".name").boundingBox();
  assert.ok(name.width > 40 && name.height > 10, "a method's button keeps its name");
  await button(page, "Whole call").click();
  for (const summary of await page.locator("summary").all()) await summary.click();
  assert.deepEqual(await wide(), []);
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 360);

  await lanes(page).first().scrollIntoViewIfNeeded();
  const { x, y, width } = await lanes(page).first().boundingBox();
  const screen = await page.context().newCDPSession(page);
  const touch = (type, ...shares) =>
    screen.send("Input.dispatchTouchEvent", {
      type,
      touchPoints: shares.map((s, id) => ({ id, x: x + s * width, y: y + 30 })),
    });
  await touch("touchStart", 0.4, 0.6);
  await touch("touchMove", 0.3, 0.7);
  await touch("touchEnd");
  await showing(page, "0:02.50", "0:07.50"); // twice as far apart, so half of the call
  await button(page, "Blind test").click();
  await button(page, "Begin").click();
  assert.deepEqual(await wide(), []);
});

pageTest("the keyboard alone reaches everything, each thing with a name and a visible focus", {}, async (page) => {
  await lanes(page).nth(5).waitFor();
  const reached = [];
  for (;;) {
    await page.keyboard.press("Tab");
    const stop = await page.evaluate(() => {
      const e = document.activeElement;
      if (e === document.body) return null;
      const name = e.ariaLabel ?? e.labels?.[0]?.textContent ?? e.textContent;
      return { name: name.trim(), outline: getComputedStyle(e).outlineStyle };
    });
    if (!stop || reached.length > 90) break;
    assert.notEqual(stop.name, "");
    assert.equal(stop.outline, "solid", stop.name);
    reached.push(stop.name);
  }
  const all = await page.locator("button:visible, select:visible, summary:visible, [tabindex='0']:visible").count();
  assert.equal(reached.length, all);
  for (const name of ["Play", "Next gap of the list", "Zoom in", "Position in the call", "Blind test"])
    assert.ok(reached.includes(name), name);
  await page.getByRole("button", { name: /Gap at 0:07.00/ }).focus();
  await page.keyboard.press("Enter");
  await showing(page, "0:06.57", "0:07.49");
  await page.keyboard.press("n");
  assert.equal(await page.locator(".gaps [aria-current=true]").count(), 1);
  await button(page, "Zoom out").focus();
  await page.keyboard.press("Space"); // belongs to the button, not to the player
  await button(page, "Play").waitFor();
});

pageTest("keys leave form fields alone and can be switched off", {}, async (page) => {
  await lanes(page).nth(5).waitFor();
  const method = choice(page, "Measured over");
  await page.keyboard.press("Home");
  await method.focus();
  await page.keyboard.press("ArrowDown");
  assert.equal(await method.inputValue(), "call");
  await page.keyboard.press("2");
  assert.equal(await button(page, "aiplc").getAttribute("aria-pressed"), "true");
  await page.getByRole("slider").focus();
  await page.keyboard.press("Control+2");
  assert.equal(await button(page, "aiplc").getAttribute("aria-pressed"), "true");
  await button(page, "Zoom in").focus();
  await page.keyboard.press("?");
  await page.getByLabel("Single keys").uncheck();
  await page.getByRole("button", { name: "Close" }).click();
  await page.getByRole("slider").focus();
  await page.keyboard.press("2");
  await page.keyboard.press("ArrowRight"); // a slider keeps its arrows
  assert.equal(await page.getByRole("slider").getAttribute("aria-valuenow"), "1.00");
  assert.equal(await button(page, "aiplc").getAttribute("aria-pressed"), "true");
  await page.getByRole("button", { name: "Keys" }).click();
  await page.getByLabel("Single keys").check();
  await page.keyboard.press("Escape");
  await page.getByRole("slider").focus();
  await page.keyboard.press("2");
  assert.equal(await button(page, "Codec").getAttribute("aria-pressed"), "true");
  assert.equal(await page.getByRole("slider").getAttribute("aria-valuetext"), "0:01.00, Codec");
});
