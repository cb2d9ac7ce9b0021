// SPDX-License-Identifier: BSD-2-Clause
// Keys of the player. Those of one character can be switched off; form fields and focused buttons keep their own.
import { useEffect, useRef, useState } from "preact/hooks";

export type Shortcuts = Readonly<Record<string, (event: KeyboardEvent) => void>>;

let enabled = true;

const takesText = (element: Element | null): boolean =>
  !!element?.closest("select, textarea, input, [contenteditable]");
const takesSpace = (element: Element | null): boolean => !!element?.closest("button, a, summary");

/** Handlers by KeyboardEvent.key, letters in lower case. */
export function useShortcuts(shortcuts: Shortcuts): void {
  const newest = useRef(shortcuts);
  newest.current = shortcuts;
  useEffect(() => {
    const onKey = (event: KeyboardEvent) => {
      if ((!enabled && event.key.length === 1) || event.ctrlKey || event.metaKey || event.altKey) return;
      if (document.querySelector("dialog[open]")) return;
      const focus = document.activeElement;
      if (takesText(focus) || (event.key === " " && takesSpace(focus))) return;
      const key = event.key.length === 1 ? event.key.toLowerCase() : event.key;
      const handler = newest.current[key];
      if (!handler) return;
      event.preventDefault();
      handler(event);
    };
    document.addEventListener("keydown", onKey);
    return () => document.removeEventListener("keydown", onKey);
  }, []);
}

/** A click must not take the focus: the next space belongs to the player. Tab still reaches every button. */
export const keepFocus = { onMouseDown: (event: Event) => event.preventDefault() };

const helpOf = (methods: number): readonly (readonly [string, string])[] => [
  ["Space", "play, pause"],
  [`1 – ${methods}`, "method"],
  ["← →", "one second back, on"],
  ["Shift ← →", "one frame back, on"],
  ["Home End", "to the start, the end"],
  ["+ −", "zoom in, out"],
  ["0", "whole call"],
  ["N P", "next, previous gap of the list"],
  ["L", "loop the gap, or stop looping"],
  ["?", "this list"],
];

/** The button that opens the list of keys, and the list; "?" opens it too. */
export function ShortcutHelp({ methods }: { methods: number }) {
  const [on, setOn] = useState(enabled);
  const dialog = useRef<HTMLDialogElement>(null);
  const close = useRef<HTMLButtonElement>(null);
  const open = () => {
    dialog.current?.showModal();
    close.current?.focus();
  };
  useShortcuts({ "?": open });
  const change = (next: boolean) => {
    enabled = next;
    setOn(next);
  };
  return (
    <>
      <button type="button" class="help" aria-keyshortcuts="?" onClick={open}>
        Keys <kbd aria-hidden="true">?</kbd>
      </button>
      <dialog class="keys" aria-label="Keys" ref={dialog}>
        <h3>Keys</h3>
        <dl>
          {helpOf(methods).map(([keys, what]) => (
            <div key={keys}>
              <dt>{keys.split(" ").map((k) => (k === "–" ? " – " : <kbd key={k}>{k}</kbd>))}</dt>
              <dd>{what}</dd>
            </div>
          ))}
          <div>
            <dt>
              <kbd>Ctrl</kbd> wheel, pinch
            </dt>
            <dd>zoom where the pointer is; drag to move</dd>
          </div>
          <div>
            <dt>Blind test</dt>
            <dd>
              <kbd>1</kbd> <kbd>2</kbd> <kbd>3</kbd> hear A, B, X; <kbd>A</kbd> <kbd>B</kbd> <kbd>N</kbd> answer A, B,
              neither
            </dd>
          </div>
        </dl>
        <label class="check">
          <input type="checkbox" checked={on} onChange={(event) => change(event.currentTarget.checked)} /> Single keys
          control the player
        </label>
        <button type="button" class="strong" ref={close} onClick={() => dialog.current?.close()}>
          Close
        </button>
      </dialog>
    </>
  );
}
