// SPDX-License-Identifier: BSD-2-Clause
// The buttons of the player.
import { type Ref } from "preact";
import { clockTime } from "./figures";
import { Badge } from "./method_style";
import { type Method, nameOf } from "./report";
import { keepFocus } from "./shortcuts";

interface Props {
  allMethods: readonly Method[];
  methods: readonly Method[];
  audible: readonly Method[];
  method: string;
  blind: boolean;
  playing: boolean;
  looping: boolean;
  duration: number; // of the call, seconds
  whole: string; // names the view of all that there is
  time: Ref<HTMLElement>;
  onToggle: () => void;
  onHear: (method: string) => void;
  onZoom: (factor: number) => void;
  onWhole: () => void;
  onStepGap: (by: number) => void;
  onLoop: () => void;
  onBlind: () => void;
}

export function PlayerBar(props: Props) {
  return (
    <div class="bar" role="toolbar" aria-label="Player" {...keepFocus}>
      <button type="button" class="play" onClick={props.onToggle} aria-keyshortcuts="Space">
        <svg viewBox="0 0 16 16" aria-hidden="true">
          <path d={props.playing ? "M4 2h3v12H4zM9 2h3v12H9z" : "M4 2l10 6-10 6z"} />
        </svg>
        {props.playing ? "Pause" : "Play"}
      </button>
      <span class="clock">
        <span ref={props.time}>0:00.00</span> <small>/ {clockTime(props.duration)}</small>
      </span>
      {!props.blind && <Choices {...props} />}
    </div>
  );
}

function Choices(props: Props) {
  return (
    <>
      <div class="segments methods" role="group" aria-label="Method heard">
        {props.methods.map(({ id, name, about }) => (
          <button
            type="button"
            key={id}
            title={about}
            aria-pressed={id === props.method}
            aria-keyshortcuts={String(props.allMethods.findIndex((m) => m.id === id) + 1)}
            disabled={!props.audible.some((m) => m.id === id)}
            onClick={() => props.onHear(id)}
          >
            <Badge methods={props.allMethods} id={id} /> <span class="name">{nameOf({ id, name })}</span>
          </button>
        ))}
      </div>
      <div class="segments" role="group" aria-label="Gap">
        <button
          type="button"
          aria-label="Previous gap of the list"
          aria-keyshortcuts="P"
          onClick={() => props.onStepGap(-1)}
        >
          ‹
        </button>
        <button type="button" aria-pressed={props.looping} aria-keyshortcuts="L" onClick={props.onLoop}>
          Loop gap
        </button>
        <button
          type="button"
          aria-label="Next gap of the list"
          aria-keyshortcuts="N"
          onClick={() => props.onStepGap(1)}
        >
          ›
        </button>
      </div>
      <div class="segments" role="group" aria-label="Zoom">
        <button type="button" aria-label="Zoom out" aria-keyshortcuts="-" onClick={() => props.onZoom(2)}>
          −
        </button>
        <button type="button" aria-keyshortcuts="0" onClick={props.onWhole}>
          {props.whole}
        </button>
        <button type="button" aria-label="Zoom in" aria-keyshortcuts="+" onClick={() => props.onZoom(0.5)}>
          +
        </button>
      </div>
      {props.audible.length > 1 && (
        <button type="button" class="blind-button" onClick={props.onBlind}>
          Blind test
        </button>
      )}
    </>
  );
}
