# SPDX-License-Identifier: BSD-2-Clause
"""Distances between concealed and loss-free speech at 16 kHz, in 16-bit steps."""
import numpy as np
from scipy.signal import resample_poly

RATE = 16000
FRAME = 320
FFT = 512
HANN = np.hanning(FRAME + 1)[:-1]
QUIETEST_POWER = 10.0    # squared steps: below it there is no speech


def power_spectra(frames):
    """(..., 257) power of frames (..., 320), Hann-windowed; white noise has its variance."""
    spectrum = np.fft.rfft(np.asarray(frames, float) * HANN, FFT)
    return np.abs(spectrum) ** 2 / np.square(HANN).sum()


def log_spectral_distance(frames, reference):
    """dB per frame, as measure/log_spectral_distance.h defines it."""
    ratio = (power_spectra(frames) + 1) / (power_spectra(reference) + 1)
    return np.sqrt(np.mean((10 * np.log10(ratio)) ** 2, axis=-1))


def full_band_distance(frames, reference):
    """The same for frames (..., 960) at 48 kHz, 0 to 24 kHz in bins of the same width."""
    hann = np.hanning(3 * FRAME + 1)[:-1]
    power = [np.abs(np.fft.rfft(np.asarray(x, float) * hann, 3 * FFT)) ** 2 / np.square(hann).sum()
             for x in (frames, reference)]
    return np.sqrt(np.mean((10 * np.log10((power[0] + 1) / (power[1] + 1))) ** 2, axis=-1))


def mel_bank(bands=24):
    """(bands, 257) triangles, equally spaced from 0 to 8 kHz on 2595 log10(1 + f / 700)."""
    edges = 700 * (10 ** (np.linspace(0, 2595 * np.log10(1 + RATE / 2 / 700), bands + 2) / 2595) - 1)
    f = np.arange(FFT // 2 + 1) * RATE / FFT
    up = (f - edges[:-2, None]) / (edges[1:-1] - edges[:-2])[:, None]
    down = (edges[2:, None] - f) / (edges[2:] - edges[1:-1])[:, None]
    return np.clip(np.minimum(up, down), 0, None)


MEL = mel_bank()
CEPSTRA = np.cos(np.pi / len(MEL) * (np.arange(len(MEL)) + 0.5) * np.arange(1, 14)[:, None]) / len(MEL)


def mel_cepstral_distance(frames, reference):
    """dB per frame over coefficients 1 to 13 of the log mel power (R. Kubichek, PACRIM 1993)."""
    c = [np.log(power_spectra(x) @ MEL.T + 1) @ CEPSTRA.T for x in (frames, reference)]
    return 10 / np.log(10) * np.sqrt(2 * np.sum((c[0] - c[1]) ** 2, axis=-1))


def snr(frames, reference):
    """dB per frame."""
    reference = np.asarray(reference, float)
    noise = np.square(reference - frames).sum(-1)
    return 10 * np.log10((np.square(reference).sum(-1) + 1) / (noise + 1))


def band_level(frames, reference, low, high):
    """Level between low and high Hz in dB relative to the reference's, per frame."""
    band = slice(low * FFT // RATE, high * FFT // RATE)
    made, true = (power_spectra(x)[..., band].sum(-1) + 1 for x in (frames, reference))
    return 10 * np.log10(made / true)


def is_speech(reference):
    """Frames (N, 320) no more than 40 dB below the loudest, as measure/speech_range.h counts."""
    power = np.square(np.asarray(reference, float)).mean(-1)
    return (power >= QUIETEST_POWER) & (power >= 1e-4 * power.max())


def third_octaves(x):
    """(15, frames) magnitudes of x at 10 kHz: 256-point Hann frames, hop 128, bands from 150 Hz."""
    starts = np.arange(0, len(x) - 256 + 1, 128)
    window = np.hanning(258)[1:-1]
    power = np.abs(np.fft.rfft(x[starts[:, None] + np.arange(256)] * window, 512)) ** 2
    centres = 150 * 2 ** (np.arange(15) / 3)
    f = np.arange(257) * 10000 / 512
    edges = [np.searchsorted(f, centres * 2 ** e) for e in (-1 / 6, 1 / 6)]
    return np.sqrt(np.stack([power[:, a:b].sum(1) for a, b in zip(*edges)]) + 1e-9)


def estoi(x, reference):
    """Extended short-time objective intelligibility (J. Jensen and C. H. Taal, IEEE/ACM TASLP
    24(11), 2016): both are one call at 16 kHz."""
    x, reference = (resample_poly(np.asarray(s, float), 5, 8) for s in (x, reference))
    starts = np.arange(0, len(reference) - 256 + 1, 128)
    energy = 20 * np.log10(np.linalg.norm(
        reference[starts[:, None] + np.arange(256)] * np.hanning(258)[1:-1], axis=1) + 1e-9)
    loud = energy > energy.max() - 40
    bands = [third_octaves(s)[:, loud] for s in (x, reference)]
    count = bands[0].shape[1] - 30 + 1
    if count < 1:
        return np.nan
    segments = []
    for b in bands:
        s = np.stack([b[:, i:i + 30] for i in range(count)])
        for axis in (2, 1):
            s = s - s.mean(axis, keepdims=True)
            s = s / (np.linalg.norm(s, axis=axis, keepdims=True) + 1e-9)
        segments.append(s)
    return float((segments[0] * segments[1]).sum((1, 2)).mean() / 30)
