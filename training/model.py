# SPDX-License-Identifier: BSD-2-Clause
"""The network that fills the last hole of a window and repairs the received frames after it.

It works on short spectra, 320 samples every 80. A spectrum's features are the levels in 48 bands of
both autoregressive extrapolations, of the autoregressive answer and of a noise whose spectrum runs
from that before the hole to that after it. Dilated convolutions with residuals over time give, for
each band, how much of each of these signals the answer takes. So pitch and phase come from the
extrapolations, and level, spectrum and the share of noise from the network.
"""
import numpy as np
import torch
from torch import nn
from torch.nn import functional as F

SIZE = 320              # samples of a spectrum; Hann window for analysis and synthesis
HOP = 80
WINDOW = 2560
SPECTRA = WINDOW // HOP + 1   # centred on samples 0, 80, .. 2560; silence is outside the window
BINS = SIZE // 2 + 1
BANDS = 48
LINEAR_BANDS = 20       # of one bin, 50 Hz; above them the width grows
SIGNALS = 4             # answer, forward, backward, noise
INPUTS = SIGNALS * BANDS + 3
QUIETEST = 4.0          # 16-bit steps: windows below it are not scaled up further
LEAST_POWER = 1e-7      # relative to the window's
RAMP = 64               # samples over which the change sets in
NOISE_AT_START = -2.0   # softplus of it is the share of noise before training


def band_weights():
    """(BANDS, BINS) triangles that sum to 1 in each bin: the centres are one bin apart up to 1 kHz,
    then spaced geometrically up to 8 kHz."""
    centres = np.concatenate([np.arange(LINEAR_BANDS), np.geomspace(
        LINEAR_BANDS, BINS - 1, BANDS - LINEAR_BANDS)])
    bins = np.arange(BINS)
    weights = np.stack([np.interp(bins, centres, row) for row in np.eye(BANDS)])
    return torch.from_numpy(weights.astype(np.float32))


def noise_spectra():
    """(BINS, SPECTRA) complex: spectra of one fixed white noise, of power 1 in the mean."""
    noise = torch.from_numpy(np.random.RandomState(20).randn(1, WINDOW).astype(np.float32))
    spectra = analyse(noise)[0]
    return spectra / spectra.abs().square().mean().sqrt()


def analyse(x):
    """(N, WINDOW) to (N, BINS, SPECTRA) complex, white noise of variance 1 giving power 1."""
    window = torch.hann_window(SIZE, device=x.device)
    return torch.stft(x, SIZE, HOP, SIZE, window, center=True, pad_mode="constant",
                      return_complex=True) / window.square().sum().sqrt()


def synthesise(spectra):
    """The inverse of analyse: overlap-add divided by the sum of the squared windows there."""
    window = torch.hann_window(SIZE, device=spectra.device)
    return torch.istft(spectra * window.square().sum().sqrt(), SIZE, HOP, SIZE, window, center=True,
                       length=WINDOW)


def bridge(levels, opened, ended):
    """Levels (N, BANDS, SPECTRA) with the hole's replaced by a line between its sides.

    opened, ended: (N,) first sample of the hole and first behind it. A hole without a far side
    keeps the level of its near one, and the other way round.
    """
    index = torch.arange(SPECTRA, device=levels.device)[None, :]
    before = torch.div(opened - SIZE // 2, HOP, rounding_mode="floor")  # last one clear of the hole
    after = torch.div(ended + SIZE // 2 + HOP - 1, HOP, rounding_mode="floor")
    before_ok, after_ok = before >= 0, after <= SPECTRA - 3
    before, after = before.clamp(0, SPECTRA - 1), after.clamp(0, SPECTRA - 1)
    left = torch.where(before_ok, before, after)[:, None]
    right = torch.where(after_ok, after, before)[:, None]
    pick = lambda at: levels.gather(2, at[:, None].expand(-1, BANDS, 1))
    share = ((index - left) / (right - left).clamp(min=1)).clamp(0, 1)[:, None]
    line = pick(left) + share * (pick(right) - pick(left))
    inside = (index > before[:, None]) & ((index < after[:, None]) | ~after_ok[:, None])
    return torch.where(inside[:, None], line, levels)


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

    def __init__(self, channels=160, dilations=(1, 2, 4, 8, 4, 2, 1)):
        super().__init__()
        self.shape = {"channels": channels, "dilations": list(dilations)}
        self.register_buffer("bands", band_weights(), persistent=False)
        self.register_buffer("noise", noise_spectra(), persistent=False)
        self.enter = nn.Conv1d(INPUTS, channels, 3, padding=1)
        self.blocks = nn.ModuleList(Block(channels, d) for d in dilations)
        self.act = nn.PReLU(channels, 0.25)
        self.leave = nn.Conv1d(channels, SIGNALS * BANDS, 1)
        nn.init.normal_(self.leave.weight, std=1e-3)
        nn.init.zeros_(self.leave.bias)

    def forward(self, x):
        """x: windows.inputs. Returns (N, 2560) in 16-bit steps, not rounded or limited."""
        known = 1 - x["missing"]
        power = (x["window"] * known).square().sum(1, keepdim=True)
        scale = (power / known.sum(1, keepdim=True).clamp(min=1)).sqrt().clamp(min=QUIETEST)
        signals = torch.stack([x["classic"], x["forward"], x["backward"]], 1) / scale[:, None]
        count = len(signals)
        spectra = analyse(signals.flatten(0, 1)).unflatten(0, (count, 3))
        per_band = self.bands / self.bands.sum(1, keepdim=True)
        power = spectra.real.square() + spectra.imag.square()
        levels = torch.log(torch.einsum("kb,nsbt->nskt", per_band, power) + LEAST_POWER)
        noise_level = bridge(levels[:, 0], x["opens"], x["ends"])

        def at_spectra(mask):  # mean of a mask over 80 samples round each centre
            return F.avg_pool1d(F.pad(mask, (HOP // 2, HOP // 2))[:, None], HOP)

        level = (0.1 * torch.log(scale / 1000))[:, :, None].expand(-1, 1, SPECTRA)
        features = torch.cat([0.2 * levels.flatten(1, 2) + 1, 0.2 * noise_level + 1,
                              at_spectra(x["missing"]), at_spectra(x["open"]), level], 1)
        y = self.enter(features)
        for block in self.blocks:
            y = block(y)
        take = self.leave(self.act(y)).unflatten(1, (SIGNALS, BANDS))
        noise_take = F.softplus(take[:, 3] + NOISE_AT_START) * torch.exp(noise_level / 2)
        take = torch.cat([take[:, :3], noise_take[:, None]], 1)
        take = torch.einsum("kb,nskt->nsbt", self.bands, take)
        change = (take[:, :3] * spectra).sum(1) + take[:, 3] * self.noise
        ramp = ((torch.arange(WINDOW, device=scale.device)[None, :] - x["opens"][:, None] + 1)
                / RAMP).clamp(0, 1)
        return x["classic"] + ramp * scale * synthesise(change)


def multiply_adds(model):
    """Multiply-adds of the convolutions for one window."""
    return sum(m.weight.numel() * SPECTRA for m in model.modules() if isinstance(m, nn.Conv1d))


def parameters(model):
    return sum(p.numel() for p in model.parameters())
