// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/autoregressive.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "worker/classical/inner_product.h"
#include "worker/window/sample.h"

namespace aiplc::worker {

namespace {

// Samples of one side that tell its model without help, and how many the other side helps with.
constexpr size_t kEnoughSamples = 640;
constexpr size_t kHelpSamples = 640;
constexpr size_t kSamplesPerCoefficient = 3;

// A gap with one open end falls to kFadedGain in 60 ms, the longest such gap that is heard.
constexpr size_t kFadeOutSamples = 960;
constexpr float kFadedGain = 0.25F;

// The extrapolation is held to the power of the loudest 5 ms of the last 40 ms, and every sample to
// twice the peak there while the model runs.
constexpr size_t kPowerBlock = 80;
constexpr size_t kRecentSamples = 640;
constexpr float kPeakMargin = 2.0F;

// From 1 to 0 over the range.
float RaisedCosine(size_t at, size_t count) {
    const float phase = (static_cast<float>(at) + 0.5F) / static_cast<float>(count);
    return 0.5F + 0.5F * std::cos(std::numbers::pi_v<float> * phase);
}

float FadeOutGain(size_t at) {
    const float fading = at < kFadeOutSamples ? RaisedCosine(at, kFadeOutSamples) : 0.0F;
    return kFadedGain + (1.0F - kFadedGain) * fading;
}

float Power(std::span<const float> samples) {
    return InnerProduct(samples.data(), samples.data(), samples.size());
}

float Peak(std::span<const float> samples) {
    float peak = 0;
    for (const float s : samples)
        peak = std::max(peak, std::abs(s));
    return peak;
}

void LimitPower(std::span<const float> recent, std::span<float> made) {
    float bound = 0;
    for (size_t at = 0; at + kPowerBlock <= recent.size(); at += kPowerBlock)
        bound = std::max(bound, Power(recent.subspan(at, kPowerBlock)));
    float gain = 1;
    for (size_t at = 0; at < made.size(); at += kPowerBlock) {
        const auto block = made.subspan(at, std::min(kPowerBlock, made.size() - at));
        const float power = Power(block);
        const float target = power > bound ? std::sqrt(bound / power) : 1.0F;
        const float step = (target - gain) / static_cast<float>(block.size());
        for (float &s : block) {
            gain += step;
            s *= gain;
        }
        gain = target;
    }
}

}  // namespace

int32_t Autoregressive::Predict(std::span<const int16_t, kWindowSamples> window,
                                std::span<int16_t, kWindowSamples> out) noexcept {
    std::copy(window.begin(), window.end(), out.begin());
    for (Signal *signal : {&m_signal, &m_forwardFill, &m_backwardFill, &m_distantFill})
        std::copy(window.begin(), window.end(), signal->begin());
    std::array<Gap, kMaxGaps> gaps;
    const size_t count = FindGaps(window, gaps);
    for (size_t h = 0; h < count; ++h) {
        const Gap &gap = gaps[h];
        const size_t futureEnd = h + 1 < count ? gaps[h + 1].begin : kWindowSamples;
        if (gap.begin == 0 && gap.end == kWindowSamples) return 0;
        Fill(gap, futureEnd);
        const size_t changedEnd = std::min(gap.end + kJoinSamples, futureEnd);
        std::transform(m_signal.begin() + static_cast<std::ptrdiff_t>(gap.begin),
                       m_signal.begin() + static_cast<std::ptrdiff_t>(changedEnd),
                       out.begin() + static_cast<std::ptrdiff_t>(gap.begin), ToSample);
        if (h + 1 == count) FillDistant(gap);
    }
    return 0;
}

// Everything before the gap is known by now; what lies between it and futureEnd was received.
void Autoregressive::Fill(const Gap &gap, size_t futureEnd) noexcept {
    const std::span<float> signal(m_signal);
    const size_t count = gap.end - gap.begin;
    const size_t pastSize = std::min(gap.begin, Burg::kMaxSegment);
    const size_t futureSize = std::min(futureEnd - gap.end, Burg::kMaxSegment);
    const auto past = signal.subspan(gap.begin - pastSize, pastSize);
    const auto received = signal.subspan(gap.end, futureSize);
    const auto future = std::span(m_reversed).first(futureSize);
    std::reverse_copy(received.begin(), received.end(), future.begin());

    if (future.empty()) {
        const auto forward = Extrapolate(past, future, count, m_forward);
        for (size_t i = 0; i < count; ++i) {
            const size_t at = gap.begin + i;
            m_forwardFill[at] = m_backwardFill[at] = m_distantFill[at] = forward[i];
            signal[at] = forward[i] * FadeOutGain(i);
        }
        return;
    }
    const auto backward = Extrapolate(future, past, count, m_backward);
    if (past.empty()) {
        for (size_t i = 0; i < count; ++i) {
            const size_t at = gap.end - 1 - i;
            m_forwardFill[at] = m_backwardFill[at] = m_distantFill[at] = backward[i];
            signal[at] = backward[i] * FadeOutGain(i);
        }
        return;
    }
    // One fade over the gap and the join, in which the received samples carry the backward
    // extrapolation on: the output has no step at the end of the gap.
    const size_t faded = count + kJoinSamples;
    const auto forward = Extrapolate(past, future, futureEnd - gap.begin, m_forward);
    std::ranges::copy(forward, m_forwardFill.begin() + static_cast<std::ptrdiff_t>(gap.begin));
    for (size_t i = 0; i < faded; ++i) {
        float &s = signal[gap.begin + i];
        const float from = i < count ? backward[count - 1 - i] : s;
        m_backwardFill[gap.begin + i] = m_distantFill[gap.begin + i] = from;
        s = from + (forward[i] - from) * RaisedCosine(i, faded);
    }
}

// The last gap again, and the frame after it, from the frames behind; where there are none, Late
// stays what Backward is.
void Autoregressive::FillDistant(const Gap &gap) noexcept {
    const size_t begin = (gap.end + kFrameSamples - 1) / kFrameSamples * kFrameSamples +
                         (gap.end % kFrameSamples == 0 ? kFrameSamples : 0);
    if (begin >= kWindowSamples) return;
    const size_t size = std::min(kWindowSamples - begin, Burg::kMaxSegment);
    const auto received = std::span<const float>(m_backwardFill).subspan(begin, size);
    const auto future = std::span(m_reversed).first(received.size());
    std::reverse_copy(received.begin(), received.end(), future.begin());
    const size_t pastSize = std::min(gap.begin, Burg::kMaxSegment);
    const auto past = std::span<const float>(m_signal).subspan(gap.begin - pastSize, pastSize);
    const auto made = Extrapolate(future, past, begin - gap.begin, m_backward);
    std::reverse_copy(made.begin(), made.end(),
                      m_distantFill.begin() + static_cast<std::ptrdiff_t>(gap.begin));
}

// Continues the near samples, which end at the gap, into it. The far samples lie on the other side
// and end at the gap in their own direction of time.
std::span<float> Autoregressive::Extrapolate(std::span<const float> near,
                                             std::span<const float> far, size_t count,
                                             Line &line) noexcept {
    const size_t helpSize = near.size() < kEnoughSamples ? std::min(far.size(), kHelpSamples) : 0;
    const auto help = far.last(helpSize);
    const size_t order =
        std::min({Burg::kMaxOrder, near.size(), (near.size() + helpSize) / kSamplesPerCoefficient});
    const auto predictor = std::span(m_predictor).first(order);
    m_burg.Fit(near, help, predictor);

    const auto recent = near.last(std::min(near.size(), kRecentSamples));
    const float limit = kPeakMargin * Peak(recent);
    std::copy_n(near.end() - static_cast<std::ptrdiff_t>(order), order, line.begin());
    const auto made = std::span(line).subspan(order, count);
    for (size_t i = 0; i < count; ++i) {
        const float next = InnerProduct(line.data() + i, predictor.data(), order);
        made[i] = std::clamp(next, -limit, limit);
    }
    LimitPower(recent, made);
    return made;
}

}  // namespace aiplc::worker
