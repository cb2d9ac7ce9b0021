// SPDX-License-Identifier: BSD-2-Clause
// The blind test.
import assert from "node:assert/strict";
import { button, choice, lanes, pageTest, sound, soundsNow } from "./page.mjs";

// Of each trial: an odd coin swaps the methods behind the letters, another makes A the X.
const trials = [
  [0, 1],
  [1, 0],
  [0, 0],
  [0, 1],
  [1, 1],
  [0, 0],
  [1, 1],
  [0, 0],
];
pageTest(
  "the blind test hides the methods and reports score and preference",
  { coins: trials.flat() },
  async (page) => {
    await button(page, "Blind test").click();
    await choice(page, "with").selectOption("Silence");
    await page.getByRole("alert").getByText("sound the same").waitFor(); // as the fixture has it
    assert.ok(await button(page, "Begin").isDisabled());
    await choice(page, "with").selectOption("Codec");
    await choice(page, "Trials").selectOption("8");
    await button(page, "Begin").click();
    assert.equal(await lanes(page).count(), 0);
    assert.equal(
      await page
        .locator(".player")
        .getByText(/aiplc|Codec/)
        .count(),
      0,
    );
    await soundsNow(page, 1); // A is aiplc
    await page.keyboard.press("2");
    await soundsNow(page, -1); // B is the codec
    await page.keyboard.press("3");
    await soundsNow(page, 1); // X is A
    for (const [i, [swapped, xIsA]] of trials.entries()) {
      await page
        .locator("h3:focus")
        .getByText(`Trial ${i + 1} of 8`)
        .waitFor();
      const answer = xIsA || i === 7 ? "a" : "b"; // one mistake, in the last trial
      const aiplc = swapped ? "B" : "A"; // called better in six trials, the codec in one
      if (i % 2) await page.keyboard.press(answer);
      else await page.getByRole("button", { name: `X is ${answer.toUpperCase()}` }).click();
      if (i === 0) await page.keyboard.press("n");
      else if (i === 1) await page.getByRole("button", { name: aiplc === "A" ? "B is better" : "A is better" }).click();
      else await page.getByRole("button", { name: `${aiplc} is better` }).click();
    }
    await page.getByRole("heading", { name: "7 of 8 right" }).waitFor();
    await button(page, "Play").waitFor(); // the sound has stopped
    const text = await page.locator(".blind-test").innerText();
    assert.match(text, /probability of 3\.5 %/); // 9 of 256
    assert.match(text, /aiplc was called better in 6 of 8 trials, Codec in 1, neither in 1.*probability of 12\.5 %/s); // 2 (7 + 1) of 128
    await button(page, "Leave the blind test").click();
    await lanes(page).first().waitFor();
  },
);

pageTest(
  "a blind test stopped early says so, and can be left and begun again",
  { coins: Array(16).fill(1) },
  async (page) => {
    await button(page, "Blind test").click();
    await choice(page, "with").selectOption("aiplc");
    await page.getByRole("alert").getByText("two different methods").waitFor();
    assert.ok(await button(page, "Begin").isDisabled());
    await choice(page, "with").selectOption("Codec");
    await choice(page, "Trials").selectOption("8");
    await button(page, "Begin").click();
    await soundsNow(page, -1); // the first coin has swapped them: A is the codec
    for (const key of ["a", "b", "b", "b"]) await page.keyboard.press(key);
    await button(page, "Stop here").click();
    await page.getByRole("heading", { name: "1 of 2 right" }).waitFor();
    assert.match(await page.locator(".blind-test").innerText(), /75\.0 %.*stopped early.*Codec\s+aiplc\s+A\s+A ✓/s);
    await button(page, "Another test").click();
    await button(page, "Begin").waitFor();
    await button(page, "Leave the blind test").click();
    await button(page, "Play").waitFor();
    assert.equal(await button(page, "aiplc").getAttribute("aria-pressed"), "true");
    const before = await page.evaluate(() => window.recorded.length);
    await page.keyboard.press("Space"); // and aiplc is what is heard again
    await page.waitForFunction((n) => window.recorded.slice(n).some((x) => x > 0.1), before);
  },
);
