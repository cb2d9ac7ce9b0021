# SPDX-License-Identifier: BSD-2-Clause
"""The network that fills the last gap of a window and repairs the received frames after it.

It works on short spectra, 320 samples every 80, of six signals (worker/classical/candidates.h): the
autoregressive answer, which is the received audio outside gaps; what extrapolates and repeats
the audio on either side. Its features are their levels and their phases relative to the answer's,
so they are the same whatever the phase of the speech. Dilated convolutions with residuals over time
give a complex gain for the answer's every bin, for each band of the other signals, and the
share of a noise whose spectrum runs from that before the gap to that after it. Pitch and phase so
come from the signals, and which to trust, level and roughness from the network.
"""
import numpy as np
import torch
from torch import nn
from torch.nn import functional as F

import refiner
import windows

SIZE = 320              # samples of a spectrum; Hann window for analysis and synthesis
HOP = 80
SEEN = windows.SEEN
SPECTRA = SEEN // HOP + 1     # centred on samples 0, 80, .. 1920; silence is outside
BINS = SIZE // 2 + 1
BANDS = 64
LINEAR_BANDS = 40       # of one bin, 50 Hz; above them the width grows
SIGNALS = len(windows.SIGNALS)
OTHERS = SIGNALS - 1
# Levels of the answer's bins, of the others' bands and of the noise; relative phases; masks, level.
INPUTS = BINS + SIGNALS * BANDS + 2 * OTHERS * BANDS + 3
OUTPUTS = 2 * BINS + 2 * OTHERS * BANDS + BANDS
QUIETEST = 4.0          # 16-bit steps: windows below it are not scaled up further
LEAST_POWER = refiner.LEAST_POWER
RAMP = 64               # samples over which the change sets in
NOISE_AT_START = -2.0   # softplus of it is the share of noise before training


def band_weights():
    """(BANDS, BINS) triangles that sum to 1 in each bin: the centres are one bin apart up to 2 kHz,
    then spaced geometrically up to 8 kHz."""
    centres = np.concatenate([np.arange(LINEAR_BANDS), np.geomspace(
        LINEAR_BANDS, BINS - 1, BANDS - LINEAR_BANDS)])
    bins = np.arange(BINS)
    weights = np.stack([np.interp(bins, centres, row) for row in np.eye(BANDS)])
    return torch.from_numpy(weights.astype(np.float32))


def analyse(x):
    """(N, SEEN) to (N, BINS, SPECTRA) complex, white noise of variance 1 giving power 1."""
    window = torch.hann_window(SIZE, device=x.device)
    return torch.stft(x, SIZE, HOP, SIZE, window, center=True, pad_mode="constant",
                      return_complex=True) / window.square().sum().sqrt()


def synthesise(spectra):
    """The inverse of analyse: overlap-add divided by the sum of the squared windows there."""
    window = torch.hann_window(SIZE, device=spectra.device)
    return torch.istft(spectra * window.square().sum().sqrt(), SIZE, HOP, SIZE, window, center=True,
                       length=SEEN)


def bridge(levels, opened, ended):
    """Levels (N, BANDS, SPECTRA) with the gap's replaced by a line between its sides.

    opened, ended: (N,) first sample of the gap and first behind it. A gap without a far side
    keeps the level of its near one.
    """
    index = torch.arange(SPECTRA, device=levels.device)[None, :]
    left = torch.div(opened - SIZE // 2, HOP, rounding_mode="floor")  # last one clear of the gap
    after = torch.div(ended + SIZE // 2 + HOP - 1, HOP, rounding_mode="floor")
    ends = after <= SPECTRA - 3
    left, right = left[:, None], torch.where(ends, after, left)[:, None]
    pick = lambda at: levels.gather(2, at[:, None].expand(-1, BANDS, 1))
    share = ((index - left) / (right - left).clamp(min=1)).clamp(0, 1)[:, None]
    line = pick(left) + share * (pick(right) - pick(left))
    inside = (index > left) & ((index < right) | ~ends[:, None])
    return torch.where(inside[:, None], line, levels)


def at_spectra(mask):
    """(N, 1, SPECTRA) mean of a mask (N, SEEN) over 80 samples round each centre."""
    return F.avg_pool1d(F.pad(mask, (HOP // 2, HOP // 2))[:, None], HOP)


def apply_bands(weights, x):
    """weights (OUT, IN) over the second of x's three dimensions."""
    return F.conv1d(x, weights[:, :, None])


class Block(nn.Module):
    """x + 1x1(PReLU(dilated conv 3(PReLU(x)))), (N, channels, SPECTRA)."""

    def __init__(self, channels, dilation):
        super().__init__()
        self.act1 = nn.PReLU(channels, 0.25)
        self.conv = nn.Conv1d(channels, channels, 3, padding=dilation, dilation=dilation)
        self.act2 = nn.PReLU(channels, 0.25)
        self.mix = nn.Conv1d(channels, channels, 1)
        nn.init.normal_(self.mix.weight, std=0.3 * channels ** -0.5)
        nn.init.zeros_(self.mix.bias)

    def forward(self, x):
        return x + self.mix(self.act2(self.conv(self.act1(x))))


class Concealer(nn.Module):
    """Answers windows. channels: width of the residual path; dilations: in spectra, one a block."""

    def __init__(self, channels=192, dilations=(1, 2, 4, 8, 4, 2, 1)):
        super().__init__()
        self.shape = {"channels": channels, "dilations": list(dilations)}
        self.register_buffer("bands", band_weights(), persistent=False)
        self.enter = nn.Conv1d(INPUTS, channels, 1)
        self.blocks = nn.ModuleList(Block(channels, d) for d in dilations)
        self.act = nn.PReLU(channels, 0.25)
        self.leave = nn.Conv1d(channels, OUTPUTS, 1)
        nn.init.normal_(self.leave.weight, std=1e-3)
        nn.init.zeros_(self.leave.bias)
        self.context = nn.Conv1d(channels, refiner.CONTEXT * BANDS, 1)
        self.refiner = refiner.Refiner(SIGNALS)

    def features(self, x, scale, spectra):
        """(N, INPUTS, SPECTRA) and the noise's levels (N, BANDS, SPECTRA), natural log of power."""
        count = len(spectra)
        re, im = spectra.real, spectra.imag
        power = re.square() + im.square()
        answer_re, answer_im = re[:, :1], im[:, :1]
        cross_re = re[:, 1:] * answer_re + im[:, 1:] * answer_im
        cross_im = im[:, 1:] * answer_re - re[:, 1:] * answer_im
        mean = self.bands / self.bands.sum(1, keepdim=True)
        means = apply_bands(mean, torch.cat([power, cross_re, cross_im], 1).flatten(0, 1))
        means = means.unflatten(0, (count, SIGNALS + 2 * OTHERS))
        band_power, cross = means[:, :SIGNALS] + LEAST_POWER, means[:, SIGNALS:]
        levels = torch.log(band_power)
        root = (band_power[:, 1:] * band_power[:, :1]).sqrt()
        phases = cross.unflatten(1, (2, OTHERS)) / root[:, None]
        noise_level = bridge(levels[:, 0], x["opens"], x["ends"])

        level = (0.1 * torch.log(scale / 1000))[:, :, None].expand(-1, 1, SPECTRA)
        bin_levels = torch.log(power[:, 0] + LEAST_POWER)
        return torch.cat([0.2 * bin_levels + 1, 0.2 * levels[:, 1:].flatten(1, 2) + 1,
                          0.2 * noise_level + 1, phases.flatten(1, 3), at_spectra(x["missing"]),
                          at_spectra(x["open"]), level], 1), noise_level

    def refine(self, x, y, spectra, noise, noise_level, change_re, change_im):
        """The second stage's correction of the change, real and imaginary part."""
        count, bins = len(y), refiner.BINS
        opened = at_spectra(x["open"])
        re, im = spectra.real[:, :, :bins], spectra.imag[:, :, :bins]
        noise, change_re, change_im = noise[:, :bins], change_re[:, :bins], change_im[:, :bins]
        to_bins = lambda bands: apply_bands(self.bands.T[:bins], bands)
        noise_bins = to_bins(noise_level)
        context = to_bins(self.context(y).unflatten(1, (refiner.CONTEXT, BANDS)).flatten(0, 1))
        context = context.unflatten(0, (count, refiner.CONTEXT))
        answer_re = re[:, 0] + opened * change_re
        answer_im = im[:, 0] + opened * change_im
        features = self.refiner.features((answer_re, answer_im), (re, im), noise_bins,
                                         at_spectra(x["missing"])[:, 0], opened[:, 0])
        take = self.refiner(torch.cat([features, context], 1))
        all_re = torch.cat([answer_re[:, None], re], 1)
        all_im = torch.cat([answer_im[:, None], im], 1)
        gain_re, gain_im, noise_take = take.split([SIGNALS + 1, SIGNALS + 1, 1], 1)
        noise_take = noise_take[:, 0] * torch.exp(noise_bins / 2)
        more_re = (gain_re * all_re - gain_im * all_im).sum(1) + noise_take * noise.real
        more_im = (gain_re * all_im + gain_im * all_re).sum(1) + noise_take * noise.imag
        above = (0, 0, 0, BINS - bins)
        return F.pad(more_re, above), F.pad(more_im, above)

    def forward(self, x):
        """x: windows.inputs. Returns (N, SEEN) in 16-bit steps, not rounded or limited."""
        scale = x["rms"].clamp(min=QUIETEST)
        count = len(scale)
        with torch.no_grad():
            signals = torch.cat([x["signals"] / scale[:, None], x["noise"][:, None]], 1)
            spectra = analyse(signals.flatten(0, 1)).unflatten(0, (count, SIGNALS + 1))
            spectra, noise = spectra[:, :SIGNALS], spectra[:, SIGNALS]
            features, noise_level = self.features(x, scale, spectra)
        y = self.enter(features)
        for block in self.blocks:
            y = block(y)
        take = self.leave(self.act(y))
        own, others, noise_take = take.split([2 * BINS, 2 * OTHERS * BANDS, BANDS], 1)
        noise_take = F.softplus(noise_take + NOISE_AT_START) * torch.exp(noise_level / 2)
        per_band = torch.cat([others, noise_take], 1).unflatten(1, (2 * OTHERS + 1, BANDS))
        per_bin = apply_bands(self.bands.T, per_band.flatten(0, 1)).unflatten(0, (count, -1))
        gain_re = torch.cat([own[:, None, :BINS], per_bin[:, :OTHERS]], 1)
        gain_im = torch.cat([own[:, None, BINS:], per_bin[:, OTHERS:2 * OTHERS]], 1)
        re, im = spectra.real, spectra.imag
        change_re = (gain_re * re - gain_im * im).sum(1) + per_bin[:, -1] * noise.real
        change_im = (gain_re * im + gain_im * re).sum(1) + per_bin[:, -1] * noise.imag
        more_re, more_im = self.refine(x, self.act(y), spectra, noise, noise_level,
                                       change_re, change_im)
        change_re, change_im = change_re + more_re, change_im + more_im
        ramp = ((torch.arange(SEEN, device=scale.device)[None, :] - x["opens"][:, None] + 1)
                / RAMP).clamp(0, 1)
        change = synthesise(torch.complex(change_re, change_im))
        return x["signals"][:, 0] + ramp * scale * change


def multiply_adds(model):
    """Multiply-adds of the convolutions for one window."""
    both = sum(m.weight.numel() * SPECTRA for m in model.modules() if isinstance(m, nn.Conv1d))
    spectra = SPECTRA - refiner.FIRST
    return both + sum(m.weight.numel() * refiner.BINS * spectra for m in model.refiner.modules()
                      if isinstance(m, nn.Conv2d))


def parameters(model):
    return sum(p.numel() for p in model.parameters())
