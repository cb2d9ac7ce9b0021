#!/usr/bin/python3
# SPDX-License-Identifier: BSD-2-Clause
"""Plays calls of the validation speakers through library and host, concealed by several hands.

    closed_loop.py --speech FOLDER --model training/weights/model.bin

codec: libopus alone. classic: the autoregressive predictor. model: the network as the worker runs
it or, from a checkpoint (.pt), in PyTorch. target: the loss-free decode in every window, the most
any model can reach. All against the loss-free output of the same calls: LSD and MCD (dB) over lost
frames, the same over the first two received frames behind each gap, ESTOI over the call, and PLCMOS
if its scorer is given. Calls at 48 kHz are measured at 16 kHz.
"""
import argparse
import glob
import importlib.util
import os
import subprocess
import tempfile

import numpy as np
import torch
from scipy.signal import resample_poly

import evaluate
import metrics
import windows

LOST = ("interpolated", "extrapolated", "codec", "muted", "lost", "partial")


def serve(process, net):
    """Answers the requests of a collector started with --answers ask."""
    while len(request := process.stdout.read(windows.RECORD.itemsize)) == windows.RECORD.itemsize:
        record = np.frombuffer(request, windows.RECORD)
        process.stdin.write(record["window"][:, :windows.BEGIN].tobytes()
                            + evaluate.answers(net, record).tobytes())
        process.stdin.flush()


def play(args, scene, who, folder):
    """Plays the calls into folder/NUMBER_RATE.pcm and .sources."""
    model = ["--answers", "ask"] if args.net else ["--answers", "model", "--model", args.model or ""]
    answers = {"model": model, "loss-free": ["--answers", "codec", "--no-losses"]}
    command = [args.collector, "--speech", args.speech, "--split", "valid", "--scene", scene,
               "--seed", str(args.seed), "--max-calls", str(args.calls), "--call-seconds", "10",
               "--output-rate", str(args.rate), "--audio", folder, *answers.get(who, ["--answers", who])]
    process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL)
    serve(process, args.net)
    if process.wait() != 0:
        raise SystemExit(f"{' '.join(command)}: failed")


def load(folder, rate):
    """Calls as (samples at 16 kHz, lost frames), by name."""
    calls = {}
    for name in sorted(glob.glob(f"{folder}/*_{rate}.pcm")):
        with open(name[:-4] + ".sources") as sources:
            lost = np.array([s.strip() in LOST for s in sources])
        samples = np.fromfile(name, "<i2")
        if rate != 16000:
            samples = resample_poly(samples.astype(float), 16000, rate)
        calls[os.path.basename(name)] = samples, lost
    return calls


def after_gap(lost):
    """The first two received frames behind each gap."""
    before = np.concatenate([[False], lost[:-1]])
    return ~lost & (before | np.concatenate([[False], before[:-1]]))


def measure(calls, reference, plcmos):
    sums = []
    frames = {"lost": [], "after": []}
    for name, (samples, lost) in calls.items():
        true = reference[name][0]
        made, real = (x[:len(lost) * 320].reshape(-1, 320) for x in (samples, true))
        speech = metrics.is_speech(real)
        for kind, mask in (("lost", lost & speech), ("after", after_gap(lost) & speech)):
            frames[kind].append(np.stack([
                metrics.log_spectral_distance(made[mask], real[mask]),
                metrics.mel_cepstral_distance(made[mask], real[mask])]))
        sums.append([metrics.estoi(samples, true),
                     plcmos.score(samples, 16000) if plcmos else np.nan])
    distances = [np.concatenate(frames[kind], axis=1).mean(1) for kind in ("lost", "after")]
    return [*np.concatenate(distances), *np.nanmean(sums, axis=0)]


def load_plcmos(path):
    if not path:
        return None
    spec = importlib.util.spec_from_file_location("plcmos", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module.Plcmos()


def main(arguments=None):
    a = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    a.add_argument("--speech", required=True)
    a.add_argument("--model", help="weights, or checkpoint of train.py; without it no model plays")
    a.add_argument("--pytorch", action="store_true", help="PyTorch runs weights too")
    a.add_argument("--rate", type=int, default=16000, choices=(16000, 48000))
    a.add_argument("--collector", default="build/release/bin/aiplc_collect_windows")
    a.add_argument("--calls", type=int, default=24, help="of 10 s each, per scene")
    a.add_argument("--scenes", nargs="+", default=["bursts2-3", "bursts4-6", "mixed"])
    hands = ["codec", "classic", "model", "target"]
    a.add_argument("--who", nargs="+", default=hands, choices=hands,
                   help="model is left out without --model")
    a.add_argument("--seed", type=int, default=11)
    a.add_argument("--plcmos", help="Python file with a class Plcmos: score(samples, rate)")
    a = a.parse_args(arguments)
    torch.set_num_threads(1)
    in_pytorch = a.model and (a.pytorch or a.model.endswith(".pt"))
    a.net = evaluate.load(a.model) if in_pytorch else None
    plcmos = load_plcmos(a.plcmos)
    print("scene", "who", "LSD lost", "MCD lost", "LSD after", "MCD after", "ESTOI", "PLCMOS", sep="\t")
    for scene in a.scenes:
        reference = None
        for who in ["loss-free", *(w for w in a.who if w != "model" or a.model)]:
            with tempfile.TemporaryDirectory() as folder:
                play(a, scene, who, folder)
                calls = load(folder, a.rate)
            reference = reference or calls
            if who != "loss-free":
                print(scene, who, *(f"{x:.3f}" for x in measure(calls, reference, plcmos)), sep="\t",
                      flush=True)


if __name__ == "__main__":
    main()
