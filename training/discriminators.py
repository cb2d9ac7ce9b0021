# SPDX-License-Identifier: BSD-2-Clause
"""Networks that tell answers from loss-free decodes, for the adversarial stage of the training.

Three of them look at compressed complex spectra of different resolution (as in A. Defossez et al.,
"High fidelity neural audio compression", 2022), one at the waveform. Objective: least squares (X. Mao et al.,
ICCV 2017), with feature matching (K. Kumar et al., "MelGAN", NeurIPS 2019).
"""
import torch
from torch import nn
from torch.nn import functional as F

import losses

HEARD = 1600    # samples at the end of the window that are judged: at least 320 before the hole
SLOPE = 0.2


class Member(nn.Module):
    """(N, HEARD) to the outputs of each layer, the verdicts (N, 1, .., ..) last."""

    def look(self, y):
        seen = []
        for layer in self.layers:
            y = F.leaky_relu(layer(y), SLOPE)
            seen.append(y)
        return [*seen, self.verdict(y)]


class OfSpectra(Member):
    def __init__(self, size, channels=(16, 24, 32, 48)):
        super().__init__()
        self.size = size
        widths = (2, *channels)
        self.layers = nn.ModuleList(
            nn.utils.weight_norm(nn.Conv2d(a, b, (5, 3), (2, 1 if i < 2 else 2), (2, 1)))
            for i, (a, b) in enumerate(zip(widths, widths[1:])))
        self.verdict = nn.utils.weight_norm(nn.Conv2d(channels[-1], 1, (3, 3), padding=(1, 1)))

    def forward(self, x):
        _, spectrum = losses.compressed(losses.spectra(x, self.size))
        return self.look(spectrum.permute(0, 3, 1, 2))


class OfSamples(Member):
    def __init__(self, channels=(16, 32, 64, 64)):
        super().__init__()
        widths = (1, *channels)
        self.layers = nn.ModuleList(
            nn.utils.weight_norm(nn.Conv1d(a, b, 15, 4 if i else 2, 7, groups=1 if i < 2 else 4))
            for i, (a, b) in enumerate(zip(widths, widths[1:])))
        self.verdict = nn.utils.weight_norm(nn.Conv1d(channels[-1], 1, 3, padding=1))

    def forward(self, x):
        return self.look(x[:, None])


class Jury(nn.Module):
    def __init__(self):
        super().__init__()
        self.members = nn.ModuleList([*(OfSpectra(s) for s in losses.WINDOWS), OfSamples()])

    def forward(self, x):
        return [member(x) for member in self.members]


def heard(answer, batch):
    """The end of the windows, (N, HEARD), scaled by the target's level there: true before the last
    hole, and after the second missing frame of mode 5, which is heard in a fade only."""
    target = batch["target"]
    answer = torch.where(losses.importance(batch) == 1, answer, target)[:, -HEARD:]
    scale = losses.level(target, batch["open"])
    return answer / scale, target[:, -HEARD:] / scale


def jury_loss(true, made):
    """What the jury gets wrong: verdicts are 1 on what is true and 0 on what was made."""
    return sum((1 - t[-1]).square().mean() + m[-1].square().mean() for t, m in zip(true, made))


def adversarial_loss(made):
    return sum((1 - m[-1]).square().mean() for m in made)


def matching_loss(true, made):
    """Mean difference of the inner layers' outputs, relative to their size."""
    return sum((t.detach() - m).abs().mean() / t.detach().abs().mean()
               for ts, ms in zip(true, made) for t, m in zip(ts[:-1], ms[:-1]))
