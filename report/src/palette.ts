// SPDX-License-Identifier: BSD-2-Clause
// Shades of the spectrograms: lightness rises or falls steadily, so that they read without colour vision too.

const kLight = ["#fbfcfd", "#dde9f1", "#a5c8dc", "#5e94bd", "#33598b", "#1b2c50", "#0a0f1f"];
const kDark = ["#0d1116", "#142339", "#1b4363", "#227187", "#48a590", "#acd391", "#fdf5c3"];

/** 256 colours as ImageData has them in memory: bytes red, green, blue, alpha. */
export function spectrogramPalette(dark: boolean): Uint8ClampedArray {
  const stops = (dark ? kDark : kLight).map((hex) => [1, 3, 5].map((i) => parseInt(hex.slice(i, i + 2), 16)));
  const palette = new Uint8ClampedArray(4 * 256);
  for (let level = 0; level < 256; ++level) {
    const at = (level / 255) * (stops.length - 1);
    const index = Math.min(stops.length - 2, Math.floor(at));
    for (let c = 0; c < 3; ++c)
      palette[4 * level + c] = stops[index]![c]! + (at - index) * (stops[index + 1]![c]! - stops[index]![c]!);
    palette[4 * level + 3] = 255;
  }
  return palette;
}
