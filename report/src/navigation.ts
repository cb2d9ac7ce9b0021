// SPDX-License-Identifier: BSD-2-Clause
// Pointer, pinch and wheel over the lanes: click seeks, drag moves, pinch and Ctrl with the wheel zoom.
import { type RefObject } from "preact";
import { useEffect, useRef } from "preact/hooks";
import { fit, shift, span, type View, zoomAbout } from "./view";

/** Pixels that a pointer may wander in a click. */
const kClickSlack = 4;

export interface Navigation {
  view: View;
  duration: number;
  onView: (view: View) => void;
  onSeek: (seconds: number) => void;
}

export function useNavigation(ref: RefObject<HTMLElement | null>, navigation: Navigation): void {
  const newest = useRef(navigation);
  newest.current = navigation;
  useEffect(() => (ref.current ? attach(ref.current, () => newest.current) : undefined), []);
}

/** The view and the fingers at the time when the gesture began or its number of fingers changed. */
interface Grip {
  view: View;
  middle: number; // pixels
  apart: number;
}

function attach(element: HTMLElement, now: () => Navigation): () => void {
  const fingers = new Map<number, number>();
  let grip: Grip | undefined;
  let moved = false;

  const pixel = (event: MouseEvent) => event.clientX - element.getBoundingClientRect().left;
  const secondsAt = (x: number, view: View) => view.start + (x / element.clientWidth) * span(view);
  const reach = () => {
    const xs = [...fingers.values()];
    return { middle: xs.reduce((a, b) => a + b, 0) / xs.length, apart: Math.max(1, Math.max(...xs) - Math.min(...xs)) };
  };
  const hold = () => (grip = fingers.size ? { view: now().view, ...reach() } : undefined);

  const onDown = (event: PointerEvent) => {
    if (event.button !== 0) return;
    if (fingers.size === 0) moved = false;
    fingers.set(event.pointerId, pixel(event));
    hold();
  };
  const onMove = (event: PointerEvent) => {
    if (!grip || !fingers.has(event.pointerId)) return;
    fingers.set(event.pointerId, pixel(event));
    const { middle, apart } = reach();
    if (fingers.size === 1 && !moved && Math.abs(middle - grip.middle) < kClickSlack) return;
    if (!moved) element.setPointerCapture(event.pointerId);
    moved = true;
    const { duration, onView } = now();
    const width = span(grip.view) * (fingers.size > 1 ? grip.apart / apart : 1);
    const start = secondsAt(grip.middle, grip.view) - (middle / element.clientWidth) * width;
    onView(fit({ start, end: start + width }, duration));
  };
  const onUp = (event: PointerEvent) => {
    if (!fingers.delete(event.pointerId)) return;
    hold();
    if (event.type === "pointerup" && !moved) now().onSeek(secondsAt(pixel(event), now().view));
  };
  const onWheel = (event: WheelEvent) => {
    const { view, duration, onView } = now();
    if (event.ctrlKey || event.metaKey) {
      event.preventDefault();
      onView(zoomAbout(view, secondsAt(pixel(event), view), Math.exp(event.deltaY * 0.005), duration));
    } else if (Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
      event.preventDefault();
      onView(shift(view, (event.deltaX / element.clientWidth) * span(view), duration));
    }
  };

  const controller = new AbortController();
  const { signal } = controller;
  element.addEventListener("pointerdown", onDown, { signal });
  element.addEventListener("pointermove", onMove, { signal });
  element.addEventListener("pointerup", onUp, { signal });
  element.addEventListener("pointercancel", onUp, { signal });
  element.addEventListener("wheel", onWheel, { signal, passive: false });
  return () => controller.abort();
}
