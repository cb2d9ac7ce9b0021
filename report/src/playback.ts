// SPDX-License-Identifier: BSD-2-Clause
// The player of a call, and the ways to move within it.
import { useLayoutEffect, useMemo, useReducer } from "preact/hooks";
import { announce } from "./announce";
import { clockTime } from "./figures";
import type { Decoded } from "./recording";
import { Transport } from "./transport";

/** startAt: seconds into the call at which the first play begins. */
export function useTransport(rateHz: number, decoded: Decoded, startAt = 0): Transport {
  const [, redraw] = useReducer((n: number) => n + 1, 0);
  const transport = useMemo(() => new Transport(rateHz), []);
  useLayoutEffect(() => {
    transport.onChange = () => redraw(undefined);
    transport.load(new Map([...decoded.recordings].map(([id, { buffer }]) => [id, buffer])), decoded.duration);
    transport.seek(startAt);
    return () => {
      transport.onChange = () => {};
      transport.close();
    };
  }, [decoded]);
  return transport;
}

/** centre: brings an instant into view; left out in the blind test, whose view is what the listener chose before. */
export function usePlayback(
  transport: Transport,
  toCall: (seconds: number) => number,
  centre: ((at: number) => void) | undefined,
) {
  const toggle = () => {
    if (transport.playing) {
      transport.pause();
      announce(`Paused at ${clockTime(toCall(transport.position))}`);
    } else {
      void transport.play();
      announce("Playing");
    }
  };
  /** Within a loop, stays in it. */
  const jump = (seconds: number) => {
    transport.seek(seconds);
    centre?.(transport.position);
  };
  /** Leaves a loop that the instant lies outside of. */
  const seek = (seconds: number) => {
    const loop = transport.loop;
    if (loop && (seconds < loop.start || seconds > loop.end)) transport.setLoop(undefined);
    jump(seconds);
  };
  const step = (seconds: number) => jump(transport.position + seconds);
  return { toggle, jump, seek, step };
}
