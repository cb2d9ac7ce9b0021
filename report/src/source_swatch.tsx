// SPDX-License-Identifier: BSD-2-Clause
// One colour for each source of frames, the same everywhere on the page.
import { type Measure, sourceOf } from "./report";

/** The colours are in style/colours.css: grey what arrived, blue and teal the worker, orange the codec, red nothing. */
export const sourceColour = (share: Measure): string => `var(--source-${sourceOf(share)}, var(--ink-3))`;

export function SourceSwatch({ measure }: { measure: Measure }) {
  return <span class="swatch" style={`background: ${sourceColour(measure)}`} aria-hidden="true" />;
}
