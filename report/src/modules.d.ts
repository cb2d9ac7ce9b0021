// SPDX-License-Identifier: BSD-2-Clause
// Modules that come without types of their own.

declare module "fourier-transform" {
  /** Magnitudes of length/2 bins; a cosine of amplitude 1 on a bin gives 1. The length is a power of two. */
  export default function rfft(input: Float32Array, output?: Float64Array): Float64Array;
}

/** The bundled text of a worker's program, see build.mjs. */
declare module "worker:*" {
  const program: string;
  export default program;
}
