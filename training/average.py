#!/usr/bin/python3
# SPDX-License-Identifier: BSD-2-Clause
"""Averages the weights of runs that began with the same ones (M. Wortsman et al., "Model soups",
ICML 2022), so that several cores can train without waiting for each other.

    average.py --out training/runs/average.pt training/runs/a/last.pt training/runs/b/last.pt
               --shares 0.5 0.5

What it writes can be exported, evaluated, and the start of another run.
"""
import argparse

import torch

import evaluate


def main():
    a = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    a.add_argument("runs", nargs="+", help="checkpoints or weights")
    a.add_argument("--shares", type=float, nargs="+", help="one for each, summing to 1; else equal")
    a.add_argument("--out", required=True)
    a = a.parse_args()
    shares = a.shares or [1 / len(a.runs)] * len(a.runs)
    if len(shares) != len(a.runs) or abs(sum(shares) - 1) > 1e-6:
        raise SystemExit(f"--shares: {len(a.runs)} that sum to 1 are wanted, not {shares}")
    nets = [evaluate.load(run) for run in a.runs]
    if any(net.shape != nets[0].shape for net in nets):
        raise SystemExit(f"networks differ in shape: {', '.join(str(n.shape) for n in nets)}")
    states = [net.state_dict() for net in nets]
    mean = {name: sum(share * state[name] for share, state in zip(shares, states))
            for name in states[0]}
    torch.save({"shape": nets[0].shape, "mean": mean}, a.out)


if __name__ == "__main__":
    main()
