# SPDX-License-Identifier: BSD-2-Clause
"""The network that fills the last hole of a window and repairs the received frames after it.

It works on patches of 40 samples (2.5 ms). A patch sees both autoregressive extrapolations and what
is missing; dilated convolutions with residuals over the patches reach over the whole window; a
transposed convolution turns each patch into 80 samples, half overlapping, of a residual and of two
gates. The answer is the autoregressive one, plus the residual, plus the gated extrapolations, from
the last hole on.
"""
import torch
from torch import nn

PATCH = 40
INPUTS = 2 * PATCH + 3
OUTPUTS = 3
QUIETEST = 4.0          # 16-bit steps: windows below it are not scaled up further


class Block(nn.Module):
    """x + 1x1(PReLU(dilated conv 3(PReLU(x)))), (N, channels, patches)."""

    def __init__(self, channels, dilation):
        super().__init__()
        self.act1 = nn.PReLU(channels, 0.25)
        self.conv = nn.Conv1d(channels, channels, 3, padding=dilation, dilation=dilation)
        self.act2 = nn.PReLU(channels, 0.25)
        self.mix = nn.Conv1d(channels, channels, 1)

    def forward(self, x):
        return x + self.mix(self.act2(self.conv(self.act1(x))))


class Concealer(nn.Module):
    """Answers windows. channels: width of the residual path; dilations: in patches, one a block."""

    def __init__(self, channels=160, dilations=(1, 2, 4, 8, 16, 4, 1)):
        super().__init__()
        self.shape = {"channels": channels, "dilations": list(dilations)}
        self.enter = nn.Conv1d(INPUTS, channels, 3, padding=1)
        self.blocks = nn.ModuleList(Block(channels, d) for d in dilations)
        self.act = nn.PReLU(channels, 0.25)
        self.leave = nn.ConvTranspose1d(channels, OUTPUTS, 2 * PATCH, PATCH, padding=PATCH // 2)
        nn.init.normal_(self.leave.weight, std=1e-3)
        nn.init.zeros_(self.leave.bias)
        for block in self.blocks:
            nn.init.normal_(block.mix.weight, std=0.3 * channels ** -0.5)
            nn.init.zeros_(block.mix.bias)

    def features(self, x, scale):
        """(N, 83, 64): both extrapolations by sample, then per patch the share that is missing,
        whether it lies in the open part, and the level of the window."""
        def patches(signal):
            return signal.reshape(len(signal), -1, PATCH).transpose(1, 2)

        missing = patches(x["missing"]).mean(1, keepdim=True)
        opened = patches(x["open"]).mean(1, keepdim=True)
        level = (0.1 * torch.log(scale / 1000)).unsqueeze(2).expand_as(missing)
        return torch.cat([patches(x["forward"] / scale), patches(x["backward"] / scale), missing,
                          opened, level], 1)

    def forward(self, x):
        """x: windows.inputs. Returns (N, 2560) in 16-bit steps, not rounded or limited."""
        known = 1 - x["missing"]
        power = (x["window"] * known).square().sum(1, keepdim=True)
        scale = (power / known.sum(1, keepdim=True).clamp(min=1)).sqrt().clamp(min=QUIETEST)
        y = self.enter(self.features(x, scale))
        for block in self.blocks:
            y = block(y)
        residual, gate1, gate2 = self.leave(self.act(y)).unbind(1)
        change = (residual * scale + torch.tanh(gate1) * x["forward"]
                  + torch.tanh(gate2) * x["backward"])
        return x["classic"] + x["open"] * change


def multiply_adds(model):
    """Multiply-adds of one window."""
    patches = 64
    total = 0
    for module in model.modules():
        if isinstance(module, (nn.Conv1d, nn.ConvTranspose1d)):
            total += module.weight.numel() * patches
    return total


def parameters(model):
    return sum(p.numel() for p in model.parameters())
