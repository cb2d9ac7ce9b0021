# SPDX-License-Identifier: BSD-2-Clause
"""What an answer costs, on everything from the last hole of the window on."""
import torch
from torch.nn import functional as F

import metrics

WINDOWS = (128, 320, 640)   # samples; hop a quarter
EXPONENT = 0.3
WEIGHTS = (0.05, 2.0, 0.2, 0.1)
FIRST = 640                 # no last hole begins before 1280, and no spectrum of it before 640
QUIETEST = 30.0             # 16-bit steps: targets below it are not scaled up further
FLOOR = 1e-6                # of the scaled spectrum's power, so that its root has a slope at 0


def level(target, opened):
    """RMS of the target in the open part, (N, 1), at least QUIETEST."""
    power = (target.square() * opened).sum(1, keepdim=True)
    return (power / opened.sum(1, keepdim=True).clamp(min=1)).sqrt().clamp(min=QUIETEST)


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


def mel_distance(answer, target, opened):
    """Mean |difference| of the natural log power in 24 mel bands, over spectra of 20 ms that touch
    the open part; powers are in squared 16-bit steps, plus one."""
    bank = torch.from_numpy(metrics.MEL.astype("float32")).to(answer.device)
    size, hop = metrics.FRAME, metrics.FRAME // 4
    window = torch.hann_window(size, device=answer.device)
    levels = []
    for x in (answer, target):
        frames = F.pad(x, (0, size // 2)).unfold(1, size, hop) * window
        spectrum = torch.fft.rfft(frames, metrics.FFT) / window.square().sum().sqrt()
        levels.append(torch.log((spectrum.real.square() + spectrum.imag.square()) @ bank.T + 1))
    touched = F.pad(opened, (0, size // 2)).unfold(1, size, hop).amax(2)
    return ((levels[0] - levels[1]).abs().mean(2) * touched).sum() / touched.sum()


def loss(answer, batch, weights=WEIGHTS):
    """Mean over the batch. weights: of the waveform, the magnitudes, the complex spectra and the
    levels in mel bands."""
    opened = batch["open"][:, FIRST:]
    scale = level(batch["target"], batch["open"])
    made = (answer / scale)[:, FIRST:]
    true = (batch["target"] / scale)[:, FIRST:]
    total = weights[0] * ((made - true).abs() * opened).sum() / opened.sum()
    if weights[3] > 0:
        total = total + weights[3] * mel_distance(answer[:, FIRST:], batch["target"][:, FIRST:],
                                                  opened)
    for size in WINDOWS:
        touched = F.pad(opened, (0, size // 2)).unfold(1, size, size // 4).amax(2).unsqueeze(1)
        magnitude, complex_ = compressed(spectra(made, size))
        true_magnitude, true_complex = compressed(spectra(true, size))
        count = touched.sum() * magnitude.shape[1]
        total = total + (weights[1] * ((magnitude - true_magnitude).abs() * touched).sum()
                         + weights[2] * ((complex_ - true_complex).square().sum(-1).add(1e-8).sqrt()
                                         * touched).sum()) / count / len(WINDOWS)
    return total
