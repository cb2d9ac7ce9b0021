#!/usr/bin/python3
# SPDX-License-Identifier: BSD-2-Clause
"""Writes the weights of a checkpoint, and windows with their answers for tests of the inference.

    export.py --model training/runs/run/last.pt --valid 'training/runs/valid/*.windows'
              --weights training/weights/model.bin --vectors training/weights/model_vectors.bin

Both are files of weight_file.py. Besides the weights, the first holds the dilations of the blocks.
The vectors hold window (N x 2560), signals (N x 6 x 1920) and answer (N x 1920) and, for window 0,
what comes out of each layer in float32: features, enter, block0.., leave; of the second stage its
features (BINS x inputs x SPECTRA) and, for four bins, layer0.. and leave.
"""
import argparse

import numpy as np
import torch

import evaluate
import model as models
import refiner
import weight_file
import windows


def weights_of(net):
    tensors = {name: value.numpy().astype("<f4") for name, value in net.state_dict().items()}
    tensors["dilations"] = np.array(net.shape["dilations"], "<f4")
    tensors["refiner.dilations"] = np.array(
        [layer.conv.dilation[0] for layer in net.refiner.layers], "<f4")
    return tensors


def chosen_bins(picture):
    """(channels, BINS, spectra) to (4, channels, spectra from refiner.FIRST on)."""
    changed = models.SPECTRA - refiner.FIRST
    return picture[:, [0, 5, 38, refiner.BINS - 1], -changed:].transpose(0, 1)


def layers_of(net, record):
    """The outputs of all layers for one record, by name."""
    seen = {}
    modules = {"enter": net.enter, "leave": net.leave, "refiner": net.refiner,
               **{f"block{i}": b for i, b in enumerate(net.blocks)},
               **{f"layer{i}": b for i, b in enumerate(net.refiner.layers)}}
    hooks = [module.register_forward_hook(
        lambda _, inputs, output, name=name: seen.update({name: (inputs[0][0], output[0])}))
        for name, module in modules.items()]
    evaluate.answers(net, record)
    for hook in hooks:
        hook.remove()
    layers = {"features": seen["enter"][0], **{name: out for name, (_, out) in seen.items()}}
    layers["refiner.features"] = seen["refiner"][0].transpose(0, 1)
    for name in [n for n in layers if n.startswith("layer")]:
        layers["refiner." + name] = chosen_bins(layers.pop(name))
    layers["refiner.leave"] = chosen_bins(layers.pop("refiner"))
    return {name: value.contiguous().numpy().astype("<f4") for name, value in layers.items()}


def choose(maps, count):
    """Windows of all modes and both rates, spread over the files."""
    every = windows.gather(maps, np.linspace(0, sum(map(len, maps)) - 1, 3000).astype(int))
    loud = every[np.abs(every["target"]).max(1) > 500]
    kinds = [(m, r) for m in (1, 3, 5, 2, 4) for r in (16, 48)]
    chosen = [loud[(loud["mode"] == m) & (loud["rate_khz"] == r)][:1] for m, r in kinds]
    return np.concatenate(chosen)[:count]


def main():
    a = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    a.add_argument("--model", required=True)
    a.add_argument("--valid", required=True)
    a.add_argument("--weights", required=True)
    a.add_argument("--vectors", required=True)
    a.add_argument("--version", type=int, default=2)
    a = a.parse_args()
    torch.set_num_threads(1)
    net = evaluate.load(a.model)
    weight_file.write(a.weights, a.version, weights_of(net))
    records = choose(windows.open_windows(a.valid), 10)
    vectors = {name: np.ascontiguousarray(records[name])
               for name in ("window", "signals")}
    vectors["answer"] = evaluate.answers(net, records)
    weight_file.write(a.vectors, a.version, {**vectors, **layers_of(net, records[:1])})
    print(f"{models.parameters(net)} parameters, {models.multiply_adds(net)} multiply-adds a window")
    for path in (a.weights, a.vectors):
        version, tensors = weight_file.read(path)
        print(f"{path}: version {version}, {len(tensors)} tensors")


if __name__ == "__main__":
    main()
