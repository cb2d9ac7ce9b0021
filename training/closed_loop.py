#!/usr/bin/python3
# SPDX-License-Identifier: BSD-2-Clause
"""Plays calls of the validation speakers through library and host, concealed by several methods.

    closed_loop.py --speech FOLDER --model training/weights/model.bin

Methods (--methods):
  codec     libopus alone, without a network (decoder complexity 4)
  neural    libopus alone, its decoder's own network conceals (complexity 5); libopus 1.5 and later
  enhanced  libopus alone, its network enhances received speech too (complexity 10); likewise
  classic   the autoregressive predictor
  model     the network as the worker runs it or, from a checkpoint (.pt), in PyTorch
  one-look  the same, but single losses are left to the codec, as the library does on its own
  target    the loss-free decode in every window, the most that any model can reach
The last four play on top of a decoder of --decoder-complexity.

All are measured against the loss-free output of the same calls at the same decoder complexity: LSD
and MCD (dB) over lost frames, the same over the first two received frames behind each gap, and
ESTOI over the call. Calls at 48 kHz are resampled to 16 kHz for it; "full" is their LSD over 0 to
24 kHz. With a scorer for PLCMOS: its mean, the mean difference from the codec in the same calls, and
half the 95 % confidence interval of that (Student's t, a call being one observation).
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
from scipy.stats import t as student

import evaluate
import metrics
import windows

LOST = ("interpolated", "extrapolated", "secondLook", "codec", "muted", "lost", "partial")
CODEC = {"codec": 4, "neural": 5, "enhanced": 10}    # decoder complexity
METHODS = [*CODEC, "classic", "model", "one-look", "target"]
ENHANCES = 6            # decoder complexity from which libopus may change received frames
SPEECH = ["single", "random", "bursts2-3", "bursts4-6", "mixed", "recorded"]
SOUNDS = ["tone", "dtmf", "music"]


def serve(process, net):
    """Answers the requests of a collector started with --answers ask."""
    while len(request := process.stdout.read(windows.RECORD.itemsize)) == windows.RECORD.itemsize:
        record = np.frombuffer(request, windows.RECORD)
        process.stdin.write(record["window"][:, :windows.BEGIN].tobytes()
                            + evaluate.answers(net, record).tobytes())
        process.stdin.flush()


def complexity_of(args, method):
    return CODEC.get(method, args.decoder_complexity)


def options_of(args, method):
    """The collector's options for a method."""
    if method in CODEC:
        return ["--answers", "codec"]
    if method in ("model", "one-look"):
        looks = ["--no-second-look"] if method == "one-look" else []
        if args.net:
            return ["--answers", "ask", *looks]
        return ["--answers", "model", "--model", args.model, *looks]
    return ["--answers", method]


def play(args, scene, complexity, options):
    """Plays the calls of a scene: name to samples at 16 kHz, lost frames, and samples at 48 kHz or
    None."""
    with tempfile.TemporaryDirectory() as folder:
        command = [args.collector, "--split", "valid", "--scene", scene, "--seed", str(args.seed),
                   "--max-calls", str(args.calls), "--call-seconds", "10", "--output-rate",
                   str(args.rate), "--decoder-complexity", str(complexity), "--audio", folder,
                   "--application", args.application,
                   *(["--full-band"] if args.full_band else []),
                   *(["--background", args.background] if args.background else []),
                   *(["--speech", args.speech] if args.speech else []), *options]
        with open(folder + "/stderr", "w+") as said:
            process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                       stderr=said)
            serve(process, args.net)
            if process.wait() != 0:
                said.seek(0)
                raise SystemExit(f"{' '.join(command)}: {said.read().strip()}")
        return {os.path.basename(name): load(name, args.rate)
                for name in sorted(glob.glob(f"{folder}/*_{args.rate}.pcm"))}


def load(name, rate):
    with open(name[:-4] + ".sources") as sources:
        lost = np.array([s.strip() in LOST for s in sources])
    samples = np.fromfile(name, "<i2")
    if rate == 16000:
        return samples, lost, None
    return resample_poly(samples.astype(float), 16000, rate), lost, samples


def after_gap(lost):
    """The first two received frames behind each gap."""
    before = np.concatenate([[False], lost[:-1]])
    return ~lost & (before | np.concatenate([[False], before[:-1]]))


def distances(call, reference):
    """For lost frames and for those behind gaps that hold speech, an array of a row for each
    distance and a column for each frame."""
    (made, lost, full), (real, _, real_full) = call, reference
    made, real = (x[:len(lost) * 320].reshape(-1, 320) for x in (made, real))
    pairs = [(metrics.log_spectral_distance, made, real), (metrics.mel_cepstral_distance, made, real)]
    if full is not None:
        pairs.append((metrics.full_band_distance,
                      *(x[:len(lost) * 960].reshape(-1, 960) for x in (full, real_full))))
    speech = metrics.is_speech(real)
    return [np.stack([distance(a[mask], b[mask]) for distance, a, b in pairs])
            for mask in (lost & speech, after_gap(lost) & speech)]


def measure(calls, reference, plcmos):
    """Means of the distances and of ESTOI, and PLCMOS of each call (empty without a scorer)."""
    frames = zip(*(distances(call, reference[name]) for name, call in calls.items()))
    means = [np.concatenate(kind, axis=1).mean(1) for kind in frames]
    estoi = np.nanmean([metrics.estoi(call[0], reference[name][0]) for name, call in calls.items()])
    scores = [plcmos.score(call[0], 16000) for call in calls.values()] if plcmos else []
    return [*np.concatenate(means), estoi], np.array(scores)


def plcmos_columns(scores, codec):
    """Mean, mean difference from the codec's scores, half of its 95 % confidence interval."""
    if not len(scores):
        return []
    columns = [f"{scores.mean():.3f}"]
    if codec is None or scores is codec:
        return [*columns, "-", "-"]
    difference = scores - codec
    half = student.ppf(0.975, len(scores) - 1) * difference.std(ddof=1) / len(scores) ** 0.5
    return [*columns, f"{difference.mean():+.3f}", f"{half:.3f}"]


def load_plcmos(path):
    if not path:
        return None
    spec = importlib.util.spec_from_file_location("plcmos", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module.Plcmos()


def compare(args, scene, plcmos):
    """Prints a line for each method."""
    references = {}
    codec = None
    for method in (m for m in METHODS if m in args.methods):
        complexity = complexity_of(args, method)
        kind = max(complexity, ENHANCES - 1)
        if kind not in references:
            references[kind] = play(args, scene, kind, ["--answers", "codec", "--no-losses"])
        calls = play(args, scene, complexity, options_of(args, method))
        figures, scores = measure(calls, references[kind], plcmos)
        if method == "codec":
            codec = scores
        print(scene, method, *(f"{x:.3f}" for x in figures), *plcmos_columns(scores, codec), sep="\t",
              flush=True)


def main(arguments=None):
    a = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    a.add_argument("--speech", help="folder of recordings; only sounds do without")
    a.add_argument("--background", help="folder with music, for the scene music")
    a.add_argument("--model", help="weights, or checkpoint of train.py; without it no model plays")
    a.add_argument("--pytorch", action="store_true", help="PyTorch runs weights too")
    a.add_argument("--rate", type=int, default=16000, choices=(16000, 48000))
    a.add_argument("--full-band", action="store_true", help="full-band calls of full-band recordings")
    a.add_argument("--decoder-complexity", type=int, default=10, choices=range(11), metavar="0..10",
                   help="of the decoder that classic, model, one-look and target play on")
    a.add_argument("--application", default="voip", choices=("voip", "audio", "low-delay"),
                   help="of the encoder: low-delay codes with CELT alone, audio what is no speech")
    a.add_argument("--collector", default="build/release/bin/aiplc_collect_windows")
    a.add_argument("--calls", type=int, default=24, help="of 10 s each, per scene")
    a.add_argument("--scenes", nargs="+", default=SPEECH,
                   choices=SPEECH + SOUNDS)
    a.add_argument("--methods", nargs="+", default=["codec", "one-look", "model", "target"],
                   choices=METHODS)
    a.add_argument("--seed", type=int, default=11)
    a.add_argument("--plcmos", help="Python file with a class Plcmos: score(samples, rate)")
    a = a.parse_args(arguments)
    if not a.model:
        a.methods = [m for m in a.methods if m not in ("model", "one-look")]
    torch.set_num_threads(1)
    in_pytorch = a.model and (a.pytorch or a.model.endswith(".pt"))
    a.net = evaluate.load(a.model) if in_pytorch else None
    plcmos = load_plcmos(a.plcmos)
    names = ["LSD", "MCD", *(["full"] if a.rate == 48000 else [])]
    print("scene", "method", *(f"{name} {kind}" for kind in ("lost", "after") for name in names), "ESTOI",
          *(["PLCMOS", "vs codec", "+-"] if plcmos else []), sep="\t")
    for scene in a.scenes:
        compare(a, scene, plcmos)


if __name__ == "__main__":
    main()
