#!/usr/bin/python3
# SPDX-License-Identifier: BSD-2-Clause
"""Writes the weights of a checkpoint, and windows with their answers for tests of the inference.

    export.py --model training/runs/run/last.pt --valid 'training/runs/valid/*.windows'
              --weights training/weights/model.bin --vectors training/weights/model_vectors.bin

Both are files of weight_file.py. Besides the weights, the first holds the dilations of the blocks.
The vectors hold window (N x 2560), signals (N x 6 x 1920) and answer (N x 1920).
"""
import argparse

import numpy as np
import torch

import evaluate
import model as models
import weight_file
import windows


def weights_of(net):
    tensors = {name: value.numpy().astype("<f4") for name, value in net.state_dict().items()}
    tensors["dilations"] = np.array(net.shape["dilations"], "<f4")
    tensors["refiner.dilations"] = np.array(
        [layer.conv.dilation[0] for layer in net.refiner.layers], "<f4")
    return tensors


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
    weight_file.write(a.vectors, a.version, vectors)
    print(f"{models.parameters(net)} parameters, {models.multiply_adds(net)} multiply-adds a window")
    for path in (a.weights, a.vectors):
        version, tensors = weight_file.read(path)
        print(f"{path}: version {version}, {len(tensors)} tensors")


if __name__ == "__main__":
    main()
