// SPDX-License-Identifier: BSD-2-Clause
// Light and dark: the system's choice until the reader makes one.
import { useEffect, useState } from "preact/hooks";

type Choice = "auto" | "light" | "dark";
const kChoices: readonly Choice[] = ["auto", "light", "dark"];
const kStored = "aiplc-report-theme";
const system = matchMedia("(prefers-color-scheme: dark)");

function stored(): Choice {
  try {
    const choice = localStorage.getItem(kStored) as Choice;
    return kChoices.includes(choice) ? choice : "auto";
  } catch {
    return "auto"; // a browser that keeps nothing for files
  }
}

/** Sets data-theme on the root; everything drawn on a canvas is drawn again when `dark` changes. */
export function useTheme(): { choice: Choice; dark: boolean; choose: (choice: Choice) => void } {
  const [choice, setChoice] = useState(stored);
  const [systemDark, setSystemDark] = useState(system.matches);
  useEffect(() => {
    const follow = () => setSystemDark(system.matches);
    system.addEventListener("change", follow);
    return () => system.removeEventListener("change", follow);
  }, []);
  const dark = choice === "auto" ? systemDark : choice === "dark";
  document.documentElement.dataset["theme"] = dark ? "dark" : "light";
  const choose = (next: Choice) => {
    setChoice(next);
    try {
      localStorage.setItem(kStored, next);
    } catch {
      // as above
    }
  };
  return { choice, dark, choose };
}

export function ThemeSwitch({ choice, choose }: { choice: Choice; choose: (choice: Choice) => void }) {
  return (
    <div class="segments" role="group" aria-label="Colours">
      {kChoices.map((c) => (
        <button type="button" key={c} aria-pressed={c === choice} onClick={() => choose(c)}>
          {{ auto: "Auto", light: "Light", dark: "Dark" }[c]}
        </button>
      ))}
    </div>
  );
}

/** The value of a colour of style/colours.css in the present theme. */
export const colour = (name: string): string =>
  getComputedStyle(document.documentElement).getPropertyValue(name).trim();
