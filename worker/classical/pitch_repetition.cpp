// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/pitch_repetition.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "worker/classical/burg.h"
#include "worker/classical/inner_product.h"

namespace aiplc::worker {

namespace {

// Length that is compared: the last 30 ms, or half of a shorter past.
constexpr size_t kCompared = 480;
// Keeps the quotient sound on silence, in squared 16-bit steps.
constexpr float kLeastPower = 1.0F;

}  // namespace

size_t PitchCycle(std::span<const float> past) noexcept {
    if (past.size() < 2 * kShortestCycle) return 0;
    const size_t compared = std::min(kCompared, past.size() / 2);
    const size_t longest = std::min(kLongestCycle, past.size() - compared);
    const float *const end = past.data() + (past.size() - compared);
    size_t best = kShortestCycle;
    float highest = -2.0F;  // normalised correlations are at least -1
    for (size_t lag = kShortestCycle; lag <= longest; ++lag) {
        const float *const earlier = end - lag;
        const float power = InnerProduct(earlier, earlier, compared) + kLeastPower;
        const float correlation = InnerProduct(end, earlier, compared) / std::sqrt(power);
        // The power of the end is the same for all lags.
        if (lag == kShortestCycle || correlation > highest) {
            highest = correlation;
            best = lag;
        }
    }
    return best;
}

void RepeatPitch(std::span<const float> past, std::span<float> made) noexcept {
    const size_t cycle = PitchCycle(past);
    if (cycle == 0) {
        std::ranges::fill(made, 0.0F);
        return;
    }
    std::array<float, kLongestCycle> pattern{};
    std::ranges::copy(past.last(cycle), pattern.begin());
    // The cycle before the last ends where the last begins.
    const size_t faded = std::min(cycle / 8, past.size() - cycle);
    const auto before = past.subspan(past.size() - cycle - faded, faded);
    for (size_t i = 0; i < faded; ++i) {
        const float share = (static_cast<float>(i) + 0.5F) / static_cast<float>(faded);
        float &s = pattern[cycle - faded + i];
        s += share * (before[i] - s);
    }
    for (size_t i = 0; i < made.size(); ++i)
        made[i] = pattern[i % cycle];
}

}  // namespace aiplc::worker
