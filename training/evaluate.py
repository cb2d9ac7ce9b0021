#!/usr/bin/python3
# SPDX-License-Identifier: BSD-2-Clause
"""How near a model's answers are to the loss-free decode, by mode, beside the autoregressive ones.

    evaluate.py --model training/runs/run/last.pt --valid 'training/runs/valid/*.windows'

lost: frames of the last gap. after: the first two received frames behind it, "none" unrepaired.
LSD: log-spectral distance, MCD: mel-cepstral distance, both in dB; SNR in dB; LF and HF: level below
1 kHz and above 4 kHz relative to the target's, in dB. Means over the frames that hold speech.
"""
import argparse

import numpy as np
import torch

import metrics
import model as models
import weight_file
import windows


def load(path):
    """The network of a checkpoint of train.py (.pt) or of weights that export.py wrote."""
    if path.endswith(".pt"):
        state = torch.load(path, map_location="cpu")
        shape, values = state["shape"], state["mean"]
    else:
        _, tensors = weight_file.read(path)
        shape = {"channels": tensors["enter.bias"].size,
                 "dilations": [int(d) for d in tensors["dilations"]]}
        values = {name: torch.from_numpy(t.copy()) for name, t in tensors.items()
                  if not name.endswith("dilations")}
    net = models.Concealer(**shape)
    # Weights of version 1 have no second stage: training adds one that changes nothing at first.
    net.load_state_dict(values, strict="refiner.enter.weight" in values)
    return net.eval()


def answers(net, records, batch=128):
    """(N, SEEN) int16: the end of what the worker would send."""
    made = []
    with torch.no_grad():
        for i in range(0, len(records), batch):
            made.append(net(windows.inputs(records[i:i + batch])).round().clamp(-32768, 32767))
    return torch.cat(made).numpy().astype(np.int16)


def frames_of(signal):
    return signal.reshape(len(signal), -1, windows.FRAME)


def line(name, frames, reference):
    speech = metrics.is_speech(reference)
    frames, reference = frames[speech], reference[speech]
    figures = [metrics.log_spectral_distance(frames, reference).mean(),
               metrics.mel_cepstral_distance(frames, reference).mean(),
               metrics.snr(frames, reference).mean(),
               metrics.band_level(frames, reference, 0, 1000).mean(),
               metrics.band_level(frames, reference, 4000, 8000).mean()]
    return [name, len(frames), *(f"{f:.2f}" for f in figures)]


def report(net, records):
    made = {"model": answers(net, records), "classic": records["signals"][:, 0],
            "none": records["window"][:, windows.BEGIN:]}
    begin, end = (at - windows.BEGIN for at in windows.last_gap(records["window"]))
    slot = np.arange(windows.SEEN // windows.FRAME)[None, :]
    lost = (slot * 320 >= begin[:, None]) & (slot * 320 < end[:, None] - windows.UNSETTLED)
    after = (slot * 320 >= end[:, None] - windows.UNSETTLED)
    target = frames_of(records["target"][:, windows.BEGIN:])
    print("mode", "frames", "of", "count", "LSD", "MCD", "SNR", "LF", "HF", sep="\t")
    for mode in (1, 2, 3, 4, 5, 0):
        rows = (records["mode"] == mode) | (mode == 0)
        first = np.argmax(after, axis=1)
        kinds = {"lost": lost, "after 1": after & (slot == first[:, None]),
                 "after 2": after & (slot == first[:, None] + 1)}
        for kind, mask in kinds.items():
            mask = mask & rows[:, None]
            if not mask.any():
                continue
            for name in ("classic", "model") if kind == "lost" else ("none", "classic", "model"):
                print(mode or "all", kind,
                      *line(name, frames_of(made[name])[mask], target[mask]), sep="\t")


def main():
    a = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    a.add_argument("--model", required=True)
    a.add_argument("--valid", required=True)
    a.add_argument("--count", type=int, default=6000, help="windows, spread over the files")
    a = a.parse_args()
    maps = windows.open_windows(a.valid)
    total = sum(len(m) for m in maps)
    records = windows.gather(maps, np.linspace(0, total - 1, min(a.count, total)).astype(int))
    report(load(a.model), records)


if __name__ == "__main__":
    main()
