// SPDX-License-Identifier: BSD-2-Clause

#include "worker/window/gaps.h"

#include <algorithm>

namespace aiplc::worker {

namespace {

bool AllZero(std::span<const int16_t> samples) {
    return std::all_of(samples.begin(), samples.end(), [](int16_t s) { return s == 0; });
}

}  // namespace

size_t FindGaps(std::span<const int16_t, kWindowSamples> window,
                std::array<Gap, kMaxGaps> &gaps) noexcept {
    size_t count = 0;
    bool open = false;
    for (size_t at = 0; at < kWindowSamples; at += kFrameSamples) {
        if (AllZero(window.subspan(at, kFrameSamples))) {
            if (!open) gaps[count++].begin = at;
            gaps[count - 1].end = at + kFrameSamples;
            open = true;
        } else {
            if (open && AllZero(window.subspan(at, kUnsettledSamples)))
                gaps[count - 1].end = at + kUnsettledSamples;
            open = false;
        }
    }
    return count;
}

}  // namespace aiplc::worker
