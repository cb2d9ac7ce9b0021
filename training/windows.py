# SPDX-License-Identifier: BSD-2-Clause
"""The windows that aiplc_collect_windows wrote, as batches of tensors."""
import glob
import zlib

import numpy as np
import torch

FRAME = 320            # samples, 20 ms at 16 kHz
FRAMES = 8
WINDOW = FRAME * FRAMES
BEGIN = 640            # the first sample the network sees
SEEN = WINDOW - BEGIN
UNSETTLED = 16         # samples that the library clears after a gap at 48 kHz
SECOND_LOOK = 16       # in flags: a single loss that the host asked for itself
SIGNALS = ("answer", "forward", "backward", "late", "pitch_forward", "pitch_backward")

# WindowRecord of training/collect/window_record.h; the signals are those of worker/classical/candidates.h.
RECORD = np.dtype([
    ("window", "<i2", WINDOW), ("target", "<i2", WINDOW), ("signals", "<i2", (len(SIGNALS), SEEN)),
    ("mode", "u1"), ("rate_khz", "u1"), ("received", "u1"), ("bandwidth", "u1"),
    ("bitrate", "<u2"), ("flags", "<u2"), ("call", "<u4"), ("newest_frame", "<u4")])


def open_windows(pattern):
    """Memory maps of all files that match, in order."""
    names = sorted(glob.glob(pattern))
    if not names:
        raise SystemExit(f"{pattern}: no such file; make train-data writes them")
    return [np.memmap(name, RECORD, mode="r") for name in names]


def last_gap(window):
    """First and end sample of the last gap of each window; -1, -1 where there is none.

    window: (N, 2560) int16. A gap is a run of all-zero frames; the cleared start of the frame
    after it belongs to it, as in worker/window/gaps.cpp.
    """
    count = len(window)
    empty = ~window.reshape(count, FRAMES, FRAME).any(axis=2)
    begin = np.full(count, -1)
    end = np.full(count, -1)
    for slot in range(FRAMES):
        opens = empty[:, slot] & ((slot == 0) | ~empty[:, max(slot - 1, 0)])
        begin[opens] = slot * FRAME
        end[empty[:, slot]] = (slot + 1) * FRAME
    unsettled = np.array([0 <= e < WINDOW and not w[e:e + UNSETTLED].any()
                          for w, e in zip(window, end)], bool)
    end[unsettled] += UNSETTLED
    return begin, end


def missing_mask(window):
    """(N, 2560) bool: samples that are missing in int16 windows of the same shape."""
    count = len(window)
    empty = ~window.reshape(count, FRAMES, FRAME).any(axis=2)
    mask = np.repeat(empty, FRAME, axis=1)
    rows, slots = np.nonzero(empty[:, :-1] & ~empty[:, 1:])
    for row, slot in zip(rows, slots):
        start = (slot + 1) * FRAME
        if not window[row, start:start + UNSETTLED].any():
            mask[row, start:start + UNSETTLED] = True
    return mask


def noise_of(window):
    """(N, SEEN) float32 white noise of variance 1, another one for each window: sample i is the
    "lowbias32" hash (C. Wellons, "Prospecting for hash functions", 2018) of the CRC-32 of the
    window's bytes plus 0x9e3779b9 * i, scaled to +-sqrt(3)."""
    seeds = np.array([zlib.crc32(np.ascontiguousarray(w, "<i2").tobytes()) for w in window], np.uint32)
    h = seeds[:, None] + np.arange(SEEN, dtype=np.uint32) * np.uint32(0x9e3779b9)
    h ^= h >> np.uint32(16)
    h *= np.uint32(0x7feb352d)
    h ^= h >> np.uint32(15)
    h *= np.uint32(0x846ca68b)
    h ^= h >> np.uint32(16)
    return h.view(np.int32).astype(np.float32) * np.float32(3 ** 0.5 / 2 ** 31)


def inputs(records):
    """The worker's view of windows, as a dict of float32 tensors.

    signals: (N, 6, SEEN), in 16-bit steps; noise: (N, SEEN); rms: (N, 1) of the window's known
    samples; missing, open: (N, SEEN), 0 or 1, open from the first sample of the last gap on, where
    the answer may differ from the autoregressive one. opens, ends: (N,) int64, first sample of the
    last gap and first behind it, counted from BEGIN.
    """
    window = np.ascontiguousarray(records["window"])
    begin, end = last_gap(window)
    missing = missing_mask(window)
    power = np.square(window.astype(np.float32)).sum(1)  # missing samples are zero
    rms = np.sqrt(power / np.maximum((~missing).sum(1), 1))
    open_ = np.arange(WINDOW)[None, :] >= begin[:, None]
    return {"signals": torch.from_numpy(records["signals"].astype(np.float32)),
            "noise": torch.from_numpy(noise_of(window)),
            "rms": torch.from_numpy(rms[:, None].astype(np.float32)),
            "missing": torch.from_numpy(missing[:, BEGIN:].astype(np.float32)),
            "open": torch.from_numpy(open_[:, BEGIN:].astype(np.float32)),
            "opens": torch.from_numpy(begin - BEGIN), "ends": torch.from_numpy(end - BEGIN)}


def batch_of(records):
    """inputs() with the target, (N, SEEN) in 16-bit steps; the mode; joins_received, (N,) bool,
    whether the frame before the last gap was received, not predicted; and changed, (N, SEEN), 1
    from the first frame on that was not received."""
    batch = inputs(records)
    before = np.maximum((batch["opens"].numpy() + BEGIN) // FRAME - 1, 0)
    received = records["received"][:, None] >> np.arange(FRAMES) & 1
    batch["joins_received"] = torch.from_numpy(received[np.arange(len(records)), before] == 1)
    changed = np.maximum.accumulate(received[:, BEGIN // FRAME:] == 0, axis=1)
    changed = torch.from_numpy(np.repeat(changed, FRAME, axis=1).astype(np.float32))
    batch["changed"] = torch.maximum(changed, batch["open"])
    batch["target"] = torch.from_numpy(records["target"][:, BEGIN:].astype(np.float32))
    batch["mode"] = torch.from_numpy(records["mode"].astype(np.int64))
    return batch


def gather(maps, indices):
    """Records by their index over all maps, in any order, as one array."""
    bounds = np.cumsum([0] + [len(m) for m in maps])
    part = np.searchsorted(bounds, indices, side="right") - 1
    out = np.empty(len(indices), RECORD)
    for which in np.unique(part):
        rows = part == which
        out[rows] = maps[which][indices[rows] - bounds[which]]
    return out
