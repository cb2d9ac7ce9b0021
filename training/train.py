#!/usr/bin/python3
# SPDX-License-Identifier: BSD-2-Clause
"""Trains the concealment network; goes on where an interrupted run stopped.

    train.py --train 'training/runs/train/*.windows' --valid 'training/runs/valid/*.windows'
             --out training/runs/run --steps 20000

OUT/last.pt holds weights, optimiser and step; OUT/log.tsv one line per --report steps with the
training loss, the learning rate and, per --validate steps, the validation loss in all and by mode.
"""
import argparse
import math
import os
import time

import numpy as np
import torch

import losses
import model as models
import windows


def arguments():
    a = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    a.add_argument("--train", required=True, help="files to train on; new ones join the run")
    a.add_argument("--valid", required=True)
    a.add_argument("--out", required=True)
    a.add_argument("--steps", type=int, default=20000, help="length of the cosine schedule")
    a.add_argument("--batch", type=int, default=16)
    a.add_argument("--rate", type=float, default=1.5e-3)
    a.add_argument("--clip", type=float, default=1.0, help="largest norm of the gradient")
    a.add_argument("--channels", type=int, default=160)
    a.add_argument("--loss", type=float, nargs=4, default=losses.WEIGHTS,
                   help="weights: waveform, magnitudes, complex spectra, levels in mel bands")
    a.add_argument("--seed", type=int, default=1)
    a.add_argument("--threads", type=int, default=os.cpu_count())
    a.add_argument("--report", type=int, default=100, help="steps between lines of the log")
    a.add_argument("--validate", type=int, default=1000, help="steps between validations, a multiple of REPORT")
    a.add_argument("--save-minutes", type=float, default=3)
    a.add_argument("--max-minutes", type=float, default=math.inf, help="stop early, to go on later")
    return a.parse_args()


def to_device(batch, device):
    return {name: tensor.to(device) for name, tensor in batch.items()}


def learning_rate(args, step):
    """Linear over the first 200 steps, then a half cosine down to a hundredth."""
    cosine = 0.505 + 0.495 * math.cos(math.pi * min(step / args.steps, 1))
    return args.rate * min((step + 1) / 200, cosine)


def validate(net, maps, device, weights, count=2048):
    """Validation loss in all and by mode 1..5, over count windows spread evenly."""
    total = sum(len(m) for m in maps)
    records = windows.gather(maps, np.linspace(0, total - 1, min(count, total)).astype(int))
    net.eval()
    sums = {}
    with torch.no_grad():
        for mode in range(1, 6):
            chosen = records[records["mode"] == mode]
            parts = [chosen[i:i + 64] for i in range(0, len(chosen), 64)]
            batches = [to_device(windows.batch_of(p), device) for p in parts]
            sums[mode] = (sum(losses.loss(net(b), b, weights).item() * len(p)
                              for b, p in zip(batches, parts)), len(chosen))
    net.train()
    overall = sum(s for s, _ in sums.values()) / len(records)
    return overall, {mode: s / max(n, 1) for mode, (s, n) in sums.items()}


def save(path, net, optimiser, step, args):
    torch.save({"shape": net.shape, "weights": net.state_dict(),
                "optimiser": optimiser.state_dict(), "step": step, "args": vars(args)},
               path + ".new")
    os.replace(path + ".new", path)


def main():
    args = arguments()
    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    device = torch.device("cuda" if torch.cuda.is_available() else "cpu")
    os.makedirs(args.out, exist_ok=True)
    checkpoint = os.path.join(args.out, "last.pt")
    net = models.Concealer(args.channels).to(device)
    optimiser = torch.optim.AdamW(net.parameters(), args.rate, weight_decay=0.01)
    step = 0
    if os.path.exists(checkpoint):
        state = torch.load(checkpoint, map_location=device)
        net.load_state_dict(state["weights"])
        optimiser.load_state_dict(state["optimiser"])
        step = state["step"]
    valid = windows.open_windows(args.valid)
    log = open(os.path.join(args.out, "log.tsv"), "a", buffering=1)
    if log.tell() == 0:
        print("step", "seconds", "windows", "rate", "loss", "valid",
              *(f"mode{m}" for m in range(1, 6)), sep="\t", file=log)
    started = saved = time.monotonic()
    recent = []
    while step < args.steps and time.monotonic() - started < 60 * args.max_minutes:
        if step % 200 == 0 or not recent:
            train = windows.open_windows(args.train)
            total = sum(len(m) for m in train)
        random = np.random.RandomState((args.seed * 1000003 + step) % 2**32)
        records = windows.gather(train, random.randint(0, total, args.batch))
        batch = to_device(windows.batch_of(records), device)
        for group in optimiser.param_groups:
            group["lr"] = learning_rate(args, step)
        value = losses.loss(net(batch), batch, args.loss)
        optimiser.zero_grad(set_to_none=True)
        value.backward()
        torch.nn.utils.clip_grad_norm_(net.parameters(), args.clip)
        optimiser.step()
        recent.append(value.item())
        step += 1
        if step % args.report == 0:
            row = [step, f"{time.monotonic() - started:.0f}", total,
                   f"{learning_rate(args, step):.2e}", f"{np.mean(recent):.4f}"]
            recent = []
            if step % args.validate == 0:
                overall, modes = validate(net, valid, device, args.loss)
                row += [f"{overall:.4f}", *(f"{v:.4f}" for v in modes.values())]
            print(*row, sep="\t", file=log)
        if time.monotonic() - saved > 60 * args.save_minutes:
            save(checkpoint, net, optimiser, step, args)
            saved = time.monotonic()
    save(checkpoint, net, optimiser, step, args)


if __name__ == "__main__":
    main()
