#!/usr/bin/python3
# SPDX-License-Identifier: BSD-2-Clause
"""The sound of calls in which the network's predictions are used in other ways.

    variants.py --speech FOLDER --model training/weights/model.bin --scenes bursts4-6

Takes the options of closed_loop.py and prints its line of the model for each variant; the network
runs in PyTorch. "mode 5" is a gap without a far side, "modes 1-4" one with it.
"""
import sys

import numpy as np

import closed_loop
import evaluate
import model as models
import windows

network_answers = evaluate.answers


def mixed(share, mode5, others):
    """A share of the autoregressive answer in the lost frames of these modes, the network's repair
    of what was received behind them as it is."""
    def answers(net, records, batch=128):
        made = network_answers(net, records, batch).astype(float)
        _, end = windows.last_gap(records["window"])
        lost = np.clip((end[:, None] - windows.BEGIN - np.arange(windows.SEEN)) / models.RAMP, 0, 1)
        chosen = np.where(records["mode"] == 5, mode5, others)[:, None]
        change = share * chosen * lost * (records["signals"][:, 0] - made)
        return (made + change).round().astype(np.int16)
    return answers


def unrepaired(net, records, batch=128):
    """Received audio behind the gap stays as in the autoregressive prediction."""
    made = network_answers(net, records, batch).astype(float)
    _, end = windows.last_gap(records["window"])
    behind = np.clip((np.arange(windows.SEEN) - (end[:, None] - windows.BEGIN)) / models.RAMP, 0, 1)
    return (made + behind * (records["signals"][:, 0] - made)).round().astype(np.int16)


def other(mode5, make):
    """Result of make(records) in mode 5 or in the other modes, the network's prediction elsewhere."""
    def answers(net, records, batch=128):
        made = network_answers(net, records, batch)
        return np.where((records["mode"] == 5)[:, None] == mode5, make(records), made).astype(np.int16)
    return answers


def true(records):
    return records["target"][:, windows.BEGIN:]


def set_in(records, instead, over):
    """instead, faded in over that many samples from the autoregressive answer."""
    begin, _ = windows.last_gap(records["window"])
    at = np.arange(windows.SEEN) - (begin[:, None] - windows.BEGIN)
    kept = records["signals"][:, 0]
    return (kept + np.clip((at + 1) / over, 0, 1) * (instead - kept.astype(float))).round()


def pitch(records):
    signal = windows.SIGNALS.index("pitch_forward")
    return set_in(records, records["signals"][:, signal], models.RAMP)


def silence(records):
    return set_in(records, 0, windows.FRAME)


# Constants of model.py, or a function in the place of evaluate.answers.
VARIANTS = {
    "as it is": {},
    "two thirds of the change in mode 5": {"answers": mixed(1 / 3, True, False)},
    "a third of the change in mode 5": {"answers": mixed(2 / 3, True, False)},
    "autoregressive in mode 5": {"answers": mixed(1, True, False)},
    "autoregressive in modes 1-4": {"answers": mixed(1, False, True)},
    "half autoregressive everywhere": {"answers": mixed(0.5, True, True)},
    "received frames unrepaired": {"answers": unrepaired},
    "no noise": {"NOISE_AT_START": -30.0},
    "more noise": {"NOISE_AT_START": models.NOISE_AT_START + 1},
    "change sets in over 16 samples": {"RAMP": 16},
    "change sets in over 160 samples": {"RAMP": 160},
    "change sets in over 320 samples": {"RAMP": 320},
    "loss-free decode in mode 5": {"answers": other(True, true)},
    "loss-free decode in modes 1-4": {"answers": other(False, true)},
    "last pitch cycle repeated in mode 5": {"answers": other(True, pitch)},
    "silence in mode 5": {"answers": other(True, silence)},
}


def main():
    plain = {name: getattr(models, name) for name in ("NOISE_AT_START", "RAMP")}
    for name, change in VARIANTS.items():
        for constant, value in plain.items():
            setattr(models, constant, change.get(constant, value))
        evaluate.answers = change.get("answers", network_answers)
        print(f"== {name}", flush=True)
        closed_loop.main([*sys.argv[1:], "--pytorch", "--methods", "model"])


if __name__ == "__main__":
    main()
