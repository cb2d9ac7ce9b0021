# SPDX-License-Identifier: BSD-2-Clause
"""The windows that aiplc_collect_windows wrote, as batches of tensors."""
import glob

import numpy as np
import torch

FRAME = 320            # samples, 20 ms at 16 kHz
FRAMES = 8
WINDOW = FRAME * FRAMES
UNSETTLED = 16         # samples that the library clears after a gap at 48 kHz

# WindowRecord of training/collect/window_record.h.
RECORD = np.dtype([
    ("window", "<i2", WINDOW), ("target", "<i2", WINDOW), ("forward", "<i2", WINDOW),
    ("backward", "<i2", WINDOW), ("classic", "<i2", WINDOW),
    ("mode", "u1"), ("rate_khz", "u1"), ("received", "u1"), ("bandwidth", "u1"),
    ("bitrate", "<u2"), ("flags", "<u2"), ("call", "<u4"), ("newest_frame", "<u4")])


def open_windows(pattern):
    """Memory maps of all files that match, in order."""
    names = sorted(glob.glob(pattern))
    if not names:
        raise SystemExit(f"{pattern}: no such file; make train-data writes them")
    return [np.memmap(name, RECORD, mode="r") for name in names]


def last_hole(window):
    """First and end sample of the last hole of each window; -1, -1 where there is none.

    window: (N, 2560) int16. A hole is a run of all-zero frames; the cleared start of the frame
    after it belongs to it, as in worker/holes.cpp.
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


def inputs(records):
    """What the worker knows of windows, as a dict of float32 tensors.

    window, forward, backward, classic: (N, 2560), in 16-bit steps. missing, open: (N, 2560), 0 or
    1; open from the first sample of the last hole on, where the answer may differ from classic.
    opens, ends: (N,) int64, first sample of the last hole and first behind it; 2560 without one.
    """
    window = np.ascontiguousarray(records["window"])
    begin, end = last_hole(window)
    begin, end = (np.where(begin < 0, WINDOW, at) for at in (begin, end))
    signals = {name: torch.from_numpy(records[name].astype(np.float32))
               for name in ("window", "forward", "backward", "classic")}
    signals["missing"] = torch.from_numpy(missing_mask(window).astype(np.float32))
    signals["open"] = torch.from_numpy(
        (np.arange(WINDOW)[None, :] >= begin[:, None]).astype(np.float32))
    signals["opens"] = torch.from_numpy(begin)
    signals["ends"] = torch.from_numpy(end)
    return signals


def batch_of(records):
    """inputs() with the target, (N, 2560) in 16-bit steps."""
    batch = inputs(records)
    batch["target"] = torch.from_numpy(records["target"].astype(np.float32))
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
