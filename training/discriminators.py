# SPDX-License-Identifier: BSD-2-Clause
"""Networks that tell answers from loss-free decodes, for the adversarial stage of the training.

All are told which samples are open, and only what they say there counts. Two look at whole short
spectra, level and phase advance of every bin, with convolutions over time; two at patches of
compressed complex spectra (as in A. Defossez et al., "High fidelity neural audio compression",
2022); one at the waveform. Objective: least squares (X. Mao et al., ICCV 2017), with feature
matching (K. Kumar et al., "MelGAN", NeurIPS 2019).
"""
import torch
from torch import nn
from torch.nn import functional as F

import losses
import windows

HEARD = 1600    # samples at the end of the window that are judged: at least 320 before the gap
SLOPE = 0.2


def conv1d(ins, outs, size, **options):
    return nn.utils.weight_norm(nn.Conv1d(ins, outs, size, **options))


def conv2d(ins, outs, size, **options):
    return nn.utils.weight_norm(nn.Conv2d(ins, outs, size, **options))


class Member(nn.Module):
    """x, open: (N, HEARD). Returns the outputs of each layer, and the verdict (N, TIMES) last."""

    def forward(self, x, opened):
        y = self.input(x, opened)
        seen = []
        for layer in self.layers:
            y = F.leaky_relu(layer(y), SLOPE)
            seen.append(y)
        verdict = self.verdict(y)
        return [*seen, verdict.flatten(1, -2).mean(1)]


def opened_spectra(opened, size):
    """(N, TIMES) share of the spectra's samples that are open, for losses.spectra."""
    return F.pad(opened, (0, size // 2)).unfold(1, size, size // 4).mean(2)


class OfSpectra(Member):
    def __init__(self, size, channels=192):
        super().__init__()
        self.size = size
        self.layers = nn.ModuleList([
            conv1d(3 * (size // 2 + 1) + 1, channels, 3, padding=1),
            conv1d(channels, channels, 3, padding=1),
            conv1d(channels, channels, 3, padding=2, dilation=2)])
        self.verdict = conv1d(channels, 1, 3, padding=1)

    def input(self, x, opened):
        magnitude, spectrum = losses.compressed(losses.spectra(x, self.size))
        past = F.pad(spectrum[:, :, :-1], (0, 0, 1, 0))
        size = (magnitude * F.pad(magnitude[:, :, :-1], (1, 0), value=1.0)).clamp(min=1e-3).sqrt()
        (re, im), (past_re, past_im) = spectrum.unbind(-1), past.unbind(-1)
        return torch.cat([torch.log(magnitude) + 0.5, (re * past_re + im * past_im) / size,
                          (im * past_re - re * past_im) / size,
                          opened_spectra(opened, self.size)[:, None]], 1)


class OfPatches(Member):
    def __init__(self, size, channels=(16, 24, 32, 48)):
        super().__init__()
        self.size = size
        widths = (3, *channels)
        self.layers = nn.ModuleList(
            conv2d(a, b, (5, 3), stride=(2, 1 if i < 2 else 2), padding=(2, 1))
            for i, (a, b) in enumerate(zip(widths, widths[1:])))
        self.verdict = conv2d(channels[-1], 1, (3, 3), padding=(1, 1))

    def input(self, x, opened):
        _, spectrum = losses.compressed(losses.spectra(x, self.size))
        y = spectrum.permute(0, 3, 1, 2)
        mask = opened_spectra(opened, self.size)[:, None, None]
        y = torch.cat([y, mask.expand(-1, 1, y.shape[2], -1)], 1)
        return y.contiguous(memory_format=torch.channels_last)


class OfSamples(Member):
    def __init__(self, channels=(16, 32, 64, 64)):
        super().__init__()
        widths = (2, *channels)
        self.layers = nn.ModuleList(
            conv1d(a, b, 15, stride=4 if i else 2, padding=7, groups=1 if i < 2 else 4)
            for i, (a, b) in enumerate(zip(widths, widths[1:])))
        self.verdict = conv1d(channels[-1], 1, 3, padding=1)

    def input(self, x, opened):
        return torch.stack([x, opened], 1)


class Discriminators(nn.Module):
    """bfloat16: whether its convolutions compute in it, which is faster where the processor has it;
    verdicts need no more."""

    def __init__(self, bfloat16=False):
        super().__init__()
        self.bfloat16 = bfloat16
        self.members = nn.ModuleList([OfSpectra(320), OfSpectra(640), OfPatches(320),
                                      OfSamples(), OfPatches(640)])

    def forward(self, x, opened):
        with torch.autocast(x.device.type, torch.bfloat16, enabled=self.bfloat16):
            seen = [member(x, opened) for member in self.members]
        return [[y.float() for y in layers] for layers in seen]


def heard(answer, batch):
    """The end of the windows as played and as they should be, scaled by the target's level in the
    open part; 1 where they may differ; and 1 where it is for this answer. Each (N, HEARD).

    What the answer goes on from is what was played, earlier gaps included. The last frame of mode 5
    fades out, as it does when no answer to a later request takes its place.
    """
    fade = torch.ones_like(answer)
    fade[batch["mode"] == 5, -windows.FRAME:] = 1 - (
        torch.arange(windows.FRAME, device=answer.device) / windows.FRAME)
    scale = losses.level(batch["target"], batch["open"])
    made, true = (x / scale * fade for x in (answer, batch["target"]))
    return [x[:, -HEARD:] for x in (made, true, batch["changed"], batch["open"])]


def where_open(error, opened):
    """Mean of error (N, TIMES) where something is open."""
    weight = (F.adaptive_avg_pool1d(opened[:, None], error.shape[1])[:, 0] > 0.1).to(error.dtype)
    return (error * weight).sum() / weight.sum()


def discriminator_loss(true, made, opened):
    """Least-squares loss of the discriminators: 1 is right for true audio, 0 for predicted."""
    return sum(where_open((1 - t[-1]).square() + m[-1].square(), opened)
               for t, m in zip(true, made))


def adversarial_loss(made, opened):
    return sum(where_open((1 - m[-1]).square(), opened) for m in made)


def matching_loss(true, made):
    """Mean difference of the inner layers' outputs, relative to their size."""
    return sum((t.detach() - m).abs().mean() / t.detach().abs().mean()
               for ts, ms in zip(true, made) for t, m in zip(ts[:-1], ms[:-1]))
