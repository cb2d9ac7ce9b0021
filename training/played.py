# SPDX-License-Identifier: BSD-2-Clause
"""Windows as they come when the network itself has answered the requests before them.

More than half of the windows hold frames that were predicted for an earlier request. In the data
those are of the predictor that played the call; here the network answers the call's last requests
once more, as the worker would, and its frames take their place. In this way it hears what it makes
of a long burst (as in S. Bengio et al., "Scheduled sampling", NeurIPS 2015).
"""
import subprocess

import numpy as np

import evaluate
import windows

EARLIER = 2         # requests that are answered again
BURST_AHEAD = 7     # frame of a mode-5 window whose prediction is not written back
LIMIT = 6           # lost frames in a row of which the last is faded out once it is predicted


def requests_before(maps, indices):
    """Index of the request before each one that has frames in common with it; -1: none."""
    bounds = np.cumsum([0] + [len(m) for m in maps])
    out = np.full(len(indices), -1)
    for i, index in enumerate(indices):
        which = np.searchsorted(bounds, index, side="right") - 1
        if index < 0 or index == bounds[which]:
            continue
        before, now = maps[which][index - bounds[which] - 1:index - bounds[which] + 1]
        passed = int(now["newest_frame"]) - int(before["newest_frame"])
        if before["call"] == now["call"] and 0 < passed < windows.SEEN // windows.FRAME:
            out[i] = index - 1
    return out


def write_back(record, before, answer):
    """Puts the answer (SEEN) to the request before into a record's window, frame by frame, as the
    library does; frames that are missing stay so, and faded ones are left out."""
    passed = int(record["newest_frame"]) - int(before["newest_frame"])
    frames = record["window"].reshape(windows.FRAMES, windows.FRAME)
    received = before["received"] >> np.arange(windows.FRAMES) & 1
    answered = np.concatenate([before["window"][:windows.BEGIN], answer]).reshape(frames.shape)
    for slot in range(windows.FRAMES - passed):
        was = slot + passed
        run = received[max(was + 1 - LIMIT, 0):was + 1]
        written = before["mode"] != 5 or was < BURST_AHEAD and (run.any() or len(run) < LIMIT)
        if written and frames[slot].any() and answered[was].any():
            frames[slot] = answered[was]


class Player:
    """program: path of aiplc_make_signals, which runs as long as this lives."""

    def __init__(self, program):
        self.maker = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def signals(self, window):
        """(SIGNALS, SEEN) int16 of a window (2560)."""
        self.maker.stdin.write(window.tobytes())
        self.maker.stdin.flush()
        size = 2 * len(windows.SIGNALS) * windows.SEEN
        made = self.maker.stdout.read(size)
        if len(made) != size:
            raise SystemExit("aiplc_make_signals: has ended")
        return np.frombuffer(made, "<i2").reshape(-1, windows.SEEN)

    def gather(self, net, maps, indices):
        """windows.gather, with the answers of net written back into the windows."""
        chain = [np.asarray(indices)]
        for _ in range(EARLIER):
            chain.append(requests_before(maps, chain[-1]))
        before = {}     # row: record and answer of the request before
        for at in reversed(chain):
            rows = np.flatnonzero(at >= 0)
            records = windows.gather(maps, at[rows])
            for i, row in enumerate(rows):
                if row in before:
                    write_back(records[i], *before[row])
                    records[i]["signals"] = self.signals(records[i]["window"])
            if at is not chain[0]:
                before = dict(zip(rows, zip(records, evaluate.answers(net, records)))) if len(rows) else {}
        return records
