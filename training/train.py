#!/usr/bin/python3
# SPDX-License-Identifier: BSD-2-Clause
"""Trains the concealment network; goes on where an interrupted run stopped.

    train.py --train 'training/runs/train/*.windows' --valid 'training/runs/valid/*.windows'
             --out training/runs/run --steps 20000 --adversarial-from 10000

OUT/last.pt holds weights, their running mean, optimisers and step; OUT/log.tsv one line per
--report steps with the training loss, the learning rate and, per --validate steps, the validation
loss of the mean weights in all and by mode.
"""
import argparse
import copy
import math
import os
import time

import numpy as np
import torch
import torch.distributed

import discriminators
import evaluate
import losses
import model as models
import played
import windows


def arguments():
    a = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    a.add_argument("--train", required=True, help="files to train on; new ones join the run")
    a.add_argument("--valid", required=True)
    a.add_argument("--out", required=True)
    a.add_argument("--signals", metavar="PROGRAM", help="aiplc_make_signals: the network answers "
                   "the requests before each window too, and its answers are in the window")
    a.add_argument("--start", help="checkpoint or weights that a new run starts from")
    a.add_argument("--steps", type=int, default=20000, help="length of the cosine schedule")
    a.add_argument("--batch", type=int, default=16)
    a.add_argument("--rate", type=float, default=1e-3)
    a.add_argument("--clip", type=float, default=5.0, help="largest norm of the gradient")
    a.add_argument("--channels", type=int, default=192)
    a.add_argument("--loss", type=float, nargs=len(losses.NAMES), default=losses.WEIGHTS,
                   help="weights: " + ", ".join(losses.NAMES))
    a.add_argument("--adversarial-from", type=int, default=10**9, help="step; 0: from the start")
    a.add_argument("--adversarial", type=float, nargs=2, default=(0.3, 0.3),
                   help="weights of the adversarial loss and of feature matching")
    a.add_argument("--discriminator-rate", type=float, default=5e-4)
    a.add_argument("--bfloat16", action="store_true",
                   help="the discriminators' convolutions, on processors that have it")
    a.add_argument("--seed", type=int, default=1)
    a.add_argument("--threads", type=int, default=os.cpu_count())
    a.add_argument("--peers", type=int, default=1, help="processes that train together")
    a.add_argument("--peer", type=int, default=0, help="this one's number; 0 writes the run")
    a.add_argument("--second-stage-rate", type=float, default=1.0,
                   help="learning rate of the second stage, relative to RATE")
    a.add_argument("--report", type=int, default=100, help="steps between lines of the log")
    a.add_argument("--validate", type=int, default=1000,
                   help="steps between validations, a multiple of REPORT")
    a.add_argument("--save-minutes", type=float, default=3)
    a.add_argument("--max-minutes", type=float, default=math.inf, help="stop early, to go on later")
    return a.parse_args()


class Peers:
    """Processes that each train on batches of their own and take the mean of their weights every
    EVERY steps (local SGD: S. U. Stich, ICLR 2019)."""

    EVERY = 20

    def __init__(self, args):
        self.count = args.peers
        if self.count == 1:
            return
        os.environ.setdefault("GLOO_SOCKET_IFNAME", "lo")
        meeting = os.path.join(os.path.abspath(args.out), "peers")
        torch.distributed.init_process_group("gloo", init_method=f"file://{meeting}",
                                             rank=args.peer, world_size=self.count)

    def agree(self, run, stops):
        """Whether any of them stops; all have the same weights then."""
        if self.count == 1:
            return stops
        if run.step % self.EVERY != 0:
            return False
        values = [p.data for m in (run.net, run.discriminators) for p in m.parameters()]
        flat = torch.cat([v.flatten() for v in values] + [torch.tensor([float(stops)])])
        torch.distributed.all_reduce(flat)
        for value, mean in zip(values, flat.split([v.numel() for v in values] + [1])):
            value.copy_(mean.view_as(value) / self.count)
        return flat[-1] > 0


class Run:
    """Everything that a checkpoint holds."""

    MEAN_OVER = 1000    # steps of the running mean of the weights
    WARM_UP = 300       # steps that the discriminators train before their loss reaches the network

    def __init__(self, args, device):
        self.args, self.device, self.step = args, device, 0
        self.net = models.Concealer(args.channels).to(device)
        self.discriminators = discriminators.Discriminators(args.bfloat16).to(device)
        second = {id(p) for m in (self.net.refiner, self.net.context) for p in m.parameters()}
        self.optimiser = torch.optim.AdamW(
            [{"params": [p for p in self.net.parameters() if (id(p) in second) == is_second],
              "relative": args.second_stage_rate if is_second else 1.0}
             for is_second in (False, True)], args.rate, weight_decay=0.01)
        self.discriminator_optimiser = torch.optim.AdamW(
            self.discriminators.parameters(), args.discriminator_rate, (0.5, 0.9))
        self.path = os.path.join(args.out, "last.pt")
        if args.start:
            self.net.load_state_dict(evaluate.load(args.start).state_dict())
        self.mean = copy.deepcopy(self.net)
        if os.path.exists(self.path):
            state = torch.load(self.path, map_location=device)
            self.step = state["step"]
            for name in ("net", "mean", "discriminators", "optimiser", "discriminator_optimiser"):
                getattr(self, name).load_state_dict(state[name])

    def save(self):
        state = {name: getattr(self, name).state_dict()
                 for name in ("net", "mean", "discriminators", "optimiser", "discriminator_optimiser")}
        torch.save({**state, "shape": self.net.shape, "step": self.step, "args": vars(self.args)},
                   self.path + ".new")
        os.replace(self.path + ".new", self.path)

    def learning_rate(self):
        """Linear over the first 200 steps, then a half cosine down to a hundredth."""
        cosine = 0.505 + 0.495 * math.cos(math.pi * min(self.step / self.args.steps, 1))
        return self.args.rate * min((self.step + 1) / 200, cosine)

    def load_batch(self, records):
        return {k: v.to(self.device) for k, v in windows.batch_of(records).items()}

    def advance(self, batch):
        """One step; returns the loss and its adversarial part."""
        for group in self.optimiser.param_groups:
            group["lr"] = self.learning_rate() * group["relative"]
        answer = self.net(batch)
        value = losses.loss(answer, batch, self.args.loss)
        adversarial = torch.zeros(())
        if self.step >= self.args.adversarial_from:
            adversarial = self.judge(*discriminators.heard(answer, batch))
        self.optimiser.zero_grad(set_to_none=True)
        (value + adversarial).backward()
        torch.nn.utils.clip_grad_norm_(self.net.parameters(), self.args.clip)
        self.optimiser.step()
        self.step += 1
        keep = min(1 - 1 / self.MEAN_OVER, self.step / (self.step + 10))
        with torch.no_grad():
            for mean, now in zip(self.mean.parameters(), self.net.parameters()):
                mean.lerp_(now, 1 - keep)
        return value.item(), adversarial.item()

    def judge(self, made, true, changed, own):
        """Trains the discriminators; returns the adversarial loss of the network."""
        seen = self.discriminators(true, changed)
        wrong = discriminators.discriminator_loss(seen, self.discriminators(made.detach(), changed), changed)
        self.discriminator_optimiser.zero_grad(set_to_none=True)
        wrong.backward()
        self.discriminator_optimiser.step()
        for p in self.discriminators.parameters():
            p.requires_grad_(False)
        told = self.discriminators(made, changed)
        for p in self.discriminators.parameters():
            p.requires_grad_(True)
        # Untrained discriminators have no influence.
        known = self.step >= self.args.adversarial_from + self.WARM_UP
        weights = [w * known for w in self.args.adversarial]
        return (weights[0] * discriminators.adversarial_loss(told, own)
                + weights[1] * discriminators.matching_loss(seen, told))

    def validate(self, maps, count=2048):
        """Validation loss in all and by mode 1..5, over count windows spread evenly."""
        total = sum(len(m) for m in maps)
        records = windows.gather(maps, np.linspace(0, total - 1, min(count, total)).astype(int))
        sums = {}
        with torch.no_grad():
            for mode in range(1, 6):
                chosen = records[records["mode"] == mode]
                parts = [chosen[i:i + 64] for i in range(0, len(chosen), 64)]
                batches = [self.load_batch(p) for p in parts]
                sums[mode] = (sum(losses.loss(self.mean(b), b, self.args.loss).item() * len(p)
                                  for b, p in zip(batches, parts)), len(chosen))
        overall = sum(s for s, _ in sums.values()) / len(records)
        return overall, {mode: s / max(n, 1) for mode, (s, n) in sums.items()}


def main():
    args = arguments()
    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    device = torch.device("cuda" if torch.cuda.is_available() else "cpu")
    os.makedirs(args.out, exist_ok=True)
    peers = Peers(args)
    run = Run(args, device)
    player = played.Player(args.signals) if args.signals else None
    valid = windows.open_windows(args.valid)
    is_first = args.peer == 0
    log = open(os.path.join(args.out, "log.tsv") if is_first else os.devnull, "a", buffering=1)
    if log.tell() == 0:
        print("step", "seconds", "windows", "rate", "loss", "adversarial", "valid",
              *(f"mode{m}" for m in range(1, 6)), sep="\t", file=log)
    started = saved = time.monotonic()
    recent = []
    while run.step < args.steps:
        if peers.agree(run, time.monotonic() - started > 60 * args.max_minutes):
            break
        if run.step % 200 == 0 or not recent:
            train = windows.open_windows(args.train)
            total = sum(len(m) for m in train)
        seed = args.seed * 1000003 + args.peer * 500009 + run.step
        random = np.random.RandomState(seed % 2**32)
        chosen = random.randint(0, total, args.batch)
        records = player.gather(run.net, train, chosen) if player else windows.gather(train, chosen)
        recent.append(run.advance(run.load_batch(records)))
        if run.step % args.report == 0:
            row = [run.step, f"{time.monotonic() - started:.0f}", total,
                   f"{run.learning_rate():.2e}", *(f"{v:.4f}" for v in np.mean(recent, axis=0))]
            recent = []
            if is_first and run.step % args.validate == 0:
                overall, modes = run.validate(valid)
                row += [f"{overall:.4f}", *(f"{v:.4f}" for v in modes.values())]
            print(*row, sep="\t", file=log)
        if is_first and time.monotonic() - saved > 60 * args.save_minutes:
            run.save()
            saved = time.monotonic()
    if is_first:
        run.save()


if __name__ == "__main__":
    main()
