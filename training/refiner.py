# SPDX-License-Identifier: BSD-2-Clause
"""The second stage of the network: bin by bin, what the first one says band by band.

It sees an answer's spectra as a picture, bins by spectra, and convolves over both: harmonics go on
over time and come at even distances, which the first stage's few channels cannot say for every bin.
"""
import torch
from torch import nn
from torch.nn import functional as F

BINS = 112              # from 0 on, up to 5.6 kHz; above there are few harmonics
FREQUENCY_STEP = 1 / 80
FIRST = 9               # spectrum that is changed; a gap begins at spectrum 8 or behind it
CONTEXT = 4             # what the first stage passes on, for each band
LEAST_POWER = 1e-7      # relative to the window's


class Layer(nn.Module):
    """now + dilated conv 3x3(PReLU of past and now), all (N, channels, BINS, spectra). past: the
    spectra before FIRST, which stay; now: those from it on."""

    def __init__(self, channels, dilation):
        super().__init__()
        self.dilation = dilation
        self.act = nn.PReLU(channels, 0.25)
        self.conv = nn.Conv2d(channels, channels, 3, dilation=dilation)
        nn.init.normal_(self.conv.weight, std=0.5 * (9 * channels) ** -0.5)
        nn.init.zeros_(self.conv.bias)

    def forward(self, past, now):
        d = self.dilation
        seen = self.act(torch.cat([past[..., past.shape[3] - d:], now], 3))
        return now + self.conv(F.pad(seen, (0, d, d, d)))


class Refiner(nn.Module):
    """dilations: in bins and spectra, one a layer."""

    def __init__(self, signals, channels=24, dilations=(1, 2, 4, 1)):
        super().__init__()
        # Levels of the answer, the signals and the noise; phases of the signals relative to the
        # answer and the answer's advance; what is missing, what is open, the frequency; context.
        self.inputs = 2 + signals + 2 * signals + 2 + 3 + CONTEXT
        self.outputs = 2 + 2 * signals + 1
        self.enter = nn.Conv2d(self.inputs, channels, 1)
        self.layers = nn.ModuleList(Layer(channels, d) for d in dilations)
        self.act = nn.PReLU(channels, 0.25)
        self.leave = nn.Conv2d(channels, self.outputs, 1)
        nn.init.zeros_(self.leave.weight)
        nn.init.zeros_(self.leave.bias)

    @staticmethod
    @torch.no_grad()
    def features(answer, signals, noise_level, missing, opened):
        """All but the context, (N, .., BINS, SPECTRA). answer: pair of (N, BINS, SPECTRA), real and
        imaginary part; signals: of (N, SIGNALS, BINS, SPECTRA)."""
        (re, im), (signal_re, signal_im) = answer, signals
        power = re.square() + im.square() + LEAST_POWER
        signal_power = signal_re.square() + signal_im.square() + LEAST_POWER
        root = (power[:, None] * signal_power).sqrt()
        cross_re = (signal_re * re[:, None] + signal_im * im[:, None]) / root
        cross_im = (signal_im * re[:, None] - signal_re * im[:, None]) / root
        past_re, past_im = F.pad(re[:, :, :-1], (1, 0)), F.pad(im[:, :, :-1], (1, 0))
        past_root = (power * (past_re.square() + past_im.square() + LEAST_POWER)).sqrt()
        turn_re = (re * past_re + im * past_im) / past_root
        turn_im = (im * past_re - re * past_im) / past_root
        # A hop is a quarter of a spectrum: a bin's centre turns by a quarter for each bin.
        quarter = torch.arange(BINS, device=re.device) % 4
        cosine = torch.tensor([1.0, 0.0, -1.0, 0.0], device=re.device)[quarter][None, :, None]
        sine = torch.tensor([0.0, 1.0, 0.0, -1.0], device=re.device)[quarter][None, :, None]
        advance = torch.stack([turn_re * cosine + turn_im * sine,
                               turn_im * cosine - turn_re * sine], 1)
        masks = torch.stack([missing, opened], 1)[:, :, None].expand(-1, -1, BINS, -1)
        frequency = FREQUENCY_STEP * torch.arange(BINS, device=re.device) - 1
        frequency = frequency[None, None, :, None].expand(len(re), 1, -1, re.shape[2])
        level = torch.log(torch.cat([power[:, None], signal_power], 1))
        return torch.cat([0.2 * level + 1, 0.2 * noise_level[:, None] + 1, cross_re, cross_im, advance,
                          masks, frequency], 1)

    def forward(self, features):
        """Gains (N, outputs, BINS, SPECTRA), zero before FIRST."""
        reach = max(layer.dilation for layer in self.layers)
        seen = features[..., FIRST - reach:].contiguous(memory_format=torch.channels_last)
        past, now = self.enter(seen).split([reach, seen.shape[3] - reach], 3)
        for layer in self.layers:
            now = layer(past, now)
        return F.pad(self.leave(self.act(now)), (FIRST, 0))
