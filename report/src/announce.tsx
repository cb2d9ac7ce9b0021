// SPDX-License-Identifier: BSD-2-Clause
// The live region: tells a screen reader what a key or a button did.
import { useEffect, useState } from "preact/hooks";

let listener: (text: string) => void = () => {};

export const announce = (text: string): void => listener(text);

export function LiveRegion() {
  const [text, setText] = useState("");
  useEffect(() => {
    listener = setText;
    return () => (listener = () => {});
  }, []);
  return (
    <p class="visually-hidden" role="status" aria-live="polite">
      {text}
    </p>
  );
}
