// SPDX-License-Identifier: BSD-2-Clause
// One colour, dash and number per method, the same everywhere on the page.
import { type Method, nameOf } from "./report";

/** The colours are in style/colours.css; told apart with any colour vision, and by dash and key number without colours. */
const kKnown = ["silence", "codec", "neural", "enhanced", "aiplc", "ideal"];
const kDashes: readonly number[][] = [[2, 3], [7, 3], [7, 3, 2, 3], [7, 3, 2, 3, 2, 3], [], [12, 4]];

const slot = (methods: readonly Method[], id: string): number => {
  const known = kKnown.indexOf(id);
  return known >= 0 ? known : methods.findIndex((m) => m.id === id) % kKnown.length;
};

export const methodColour = (methods: readonly Method[], id: string): string => `--method-${slot(methods, id)}`;
export const methodDash = (methods: readonly Method[], id: string): number[] => [...kDashes[slot(methods, id)]!];

/** The key of a method and its colour. */
export function Badge({ methods, id }: { methods: readonly Method[]; id: string }) {
  return (
    <span class="badge" style={`--method: var(${methodColour(methods, id)})`} aria-hidden="true">
      {methods.findIndex((m) => m.id === id) + 1}
    </span>
  );
}

export function MethodName({ methods, id }: { methods: readonly Method[]; id: string }) {
  const method = methods.find((m) => m.id === id);
  return (
    <span class="method-name" title={method?.about}>
      <Badge methods={methods} id={id} /> {method ? nameOf(method) : id}
    </span>
  );
}
