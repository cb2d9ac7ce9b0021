# SPDX-License-Identifier: BSD-2-Clause
"""Losses of a prediction, over all samples from the last gap of the window on."""
import torch
from torch.nn import functional as F

import metrics
import windows

WINDOWS = (128, 320, 640)   # samples; hop a quarter
EXPONENT = 0.3
NAMES = ("waveform", "magnitude", "complex", "mel", "after")
WEIGHTS = (0.1, 1.0, 0.5, 0.2, 0.2)
FIRST = 320                 # of the samples seen: no last gap begins before 640 of them
QUIETEST = 30.0             # 16-bit steps: targets below it are not scaled up further
FLOOR = 1e-6                # of the scaled spectrum's power, so that its root has a slope at 0
UNHEARD = 0.2               # weight of what a mode-5 window has behind its second missing frame


def level(target, opened):
    """RMS of the target in the open part, (N, 1), at least QUIETEST."""
    power = (target.square() * opened).sum(1, keepdim=True)
    return (power / opened.sum(1, keepdim=True).clamp(min=1)).sqrt().clamp(min=QUIETEST)


def importance(batch):
    """(N, SEEN): open, less where the answer is heard in a fade only: the last frame of mode 5."""
    weight = batch["open"].clone()
    weight[batch["mode"] == 5, windows.SEEN - windows.FRAME + windows.FRAME // 4:] = UNHEARD
    return weight


def phase_known(batch):
    """(N, SEEN), 0 to 1: how far the phase is given. Not where the gap has no far side (mode 5): to
    ask for it there is to ask for silence. In a gap behind a predicted frame it grows from what that
    frame has to the true one."""
    at = torch.arange(windows.SEEN, device=batch["opens"].device)[None, :] - batch["opens"][:, None]
    grown = (at / (batch["ends"] - batch["opens"])[:, None]).clamp(0, 1)
    known = torch.where(batch["joins_received"][:, None], torch.ones_like(grown), grown)
    return known * (batch["mode"] != 5)[:, None]


def spectra(x, size):
    """(N, bins, frames, 2): real and imaginary part, Hann windows scaled to the RMS of white noise."""
    window = torch.hann_window(size, device=x.device)
    window = window / window.square().sum().sqrt()
    x = F.pad(x, (0, size // 2))  # the last samples of the window count too
    return torch.view_as_real(torch.stft(x, size, size // 4, size, window, center=False,
                                         return_complex=True))


def compressed(spectrum):
    """Magnitude to the power EXPONENT and the complex spectrum with that magnitude."""
    power = spectrum.square().sum(-1) + FLOOR
    magnitude = power ** (EXPONENT / 2)
    return magnitude, spectrum * (magnitude / power.sqrt()).unsqueeze(-1)


def log_spectra(x):
    """Natural log power of 20 ms every 5 ms, in squared 16-bit steps plus one; and in mel bands."""
    size, hop = metrics.FRAME, metrics.FRAME // 4
    window = torch.hann_window(size, device=x.device)
    frames = F.pad(x, (0, size // 2)).unfold(1, size, hop) * window
    spectrum = torch.fft.rfft(frames, metrics.FFT) / window.square().sum().sqrt()
    power = spectrum.real.square() + spectrum.imag.square()
    bank = torch.from_numpy(metrics.MEL.astype("float32")).to(x.device)
    return torch.log(power + 1), torch.log(power @ bank.T + 1)


def log_distances(answer, target, opened, ends):
    """Mean |difference| of the log power in 24 mel bands over spectra that touch the open part, and
    bin by bin over those behind the gap."""
    size, hop = metrics.FRAME, metrics.FRAME // 4
    bins, mels = zip(log_spectra(answer), log_spectra(target))
    weight = F.pad(opened, (0, size // 2)).unfold(1, size, hop).amax(2)
    at = torch.arange(weight.shape[1], device=weight.device)[None, :] * hop
    behind = weight * (at >= ends[:, None] - size // 8)
    per_mel = (mels[0] - mels[1]).abs().mean(2)
    per_bin = (bins[0] - bins[1]).abs().mean(2)
    mean = lambda x, w: (x * w).sum() / w.sum().clamp(min=1)
    return mean(per_mel, weight), mean(per_bin, behind)


def loss(answer, batch, weights=WEIGHTS):
    """Mean over the batch. weights: as NAMES; the last is of the log power bin by bin behind the
    gap. Waveform and complex spectrum count as far as the phase is known."""
    opened = importance(batch)[:, FIRST:]
    scale = level(batch["target"], batch["open"])
    answer, target = answer[:, FIRST:], batch["target"][:, FIRST:]
    made, true = answer / scale, target / scale
    phased = phase_known(batch)[:, FIRST:]
    total = weights[0] * ((made - true).abs() * opened * phased).sum() / opened.sum()
    logs = log_distances(answer, target, opened, batch["ends"] - FIRST)
    for weight, distance in zip(weights[3:], logs):
        if weight > 0:
            total = total + weight * distance
    for size in WINDOWS:
        frames = lambda x: F.pad(x, (0, size // 2)).unfold(1, size, size // 4)
        touched = frames(opened).amax(2).unsqueeze(1)
        magnitude, complex_ = compressed(spectra(made, size))
        true_magnitude, true_complex = compressed(spectra(true, size))
        count = touched.sum() * magnitude.shape[1]
        known = touched * frames(phased).mean(2).unsqueeze(1)
        distance = (complex_ - true_complex).square().sum(-1).add(1e-8).sqrt()
        total = total + (weights[1] * ((magnitude - true_magnitude).abs() * touched).sum()
                         + weights[2] * (distance * known).sum()) / count / len(WINDOWS)
    return total
