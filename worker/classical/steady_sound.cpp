// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/steady_sound.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "worker/classical/autoregressive.h"
#include "worker/classical/inner_product.h"
#include "worker/window/sample.h"

namespace aiplc::worker {

namespace {

// Error by power. Nearly all losses in a steady tone are below this, and one in some thousands of
// those in speech (docs/model.md).
constexpr float kMostMissed = 0.01F;
// Mean power in squared 16-bit steps. Below it the rounding to 16 bits is part of the error.
constexpr float kQuietestPower = 100;

float MeanPower(std::span<const float> samples) {
    return InnerProduct(samples.data(), samples.data(), samples.size()) /
           static_cast<float>(samples.size());
}

// From 1 to 0 over the join.
float JoinGain(size_t at) {
    constexpr auto kJoin = static_cast<float>(Autoregressive::kJoinSamples);
    return 0.5F +
           0.5F * std::cos(std::numbers::pi_v<float> * (static_cast<float>(at) + 0.5F) / kJoin);
}

}  // namespace

// past ends at the gap. Fills m_missed.
bool SteadySound::IsSteady(std::span<const int16_t> past) noexcept {
    const auto recent = past.last(kFrameSamples);
    std::ranges::copy(recent, m_missed.begin());
    const float power = MeanPower(m_missed);
    if (power < kQuietestPower) return false;
    const auto known = past.first(past.size() - kFrameSamples);
    const auto near = known.last(std::min(known.size(), Burg::kMaxSegment));
    std::ranges::copy(near, m_line.begin());
    const auto predictor = std::span(m_predictor).first(std::min(Burg::kMaxOrder, near.size() / 3));
    m_burg.Fit(std::span(m_line).first(near.size()), {}, predictor);

    const auto made = std::span(m_line).subspan(near.size(), kFrameSamples);
    for (size_t i = 0; i < kFrameSamples; ++i) {
        made[i] = InnerProduct(&made[i] - predictor.size(), predictor.data(), predictor.size());
        m_missed[i] -= made[i];
    }
    return MeanPower(m_missed) < kMostMissed * power;
}

bool SteadySound::Continue(const Candidates &candidates,
                           std::span<int16_t, kWindowSamples> out) noexcept {
    const Gap &gap = candidates.LastGap();
    if (gap.end == kWindowSamples || !IsSteady(out.first(gap.begin))) return false;
    const auto forward = std::span(candidates[Candidates::forward]);
    const auto received = std::span(candidates[Candidates::backward]);
    const size_t end = std::min(gap.end + Autoregressive::kJoinSamples, kWindowSamples);
    for (size_t i = gap.begin; i < end; ++i) {
        // There and back, so that it does not step.
        const size_t turn = (i - gap.begin) % (2 * kFrameSamples);
        const float missed = m_missed[turn < kFrameSamples ? turn : 2 * kFrameSamples - 1 - turn];
        const float made = static_cast<float>(forward[i - Candidates::kBegin]) + missed;
        const auto from = static_cast<float>(received[i - Candidates::kBegin]);
        const float gain = i < gap.end ? 1 : JoinGain(i - gap.end);
        out[i] = ToSample(from + gain * (made - from));
    }
    return true;
}

}  // namespace aiplc::worker
