// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/outage.h"

#include <algorithm>
#include <cmath>

#include "worker/classical/inner_product.h"
#include "worker/classical/white_noise.h"
#include "worker/window/sample.h"

namespace aiplc::worker {

namespace {

// The quietest frame counts as 1 dB louder after 10 windows, so that another one takes its place
// when the background becomes louder.
constexpr float kForget = 1.0233F;
// The quietest of some dozens of frames of noise is about 2.5 dB below their mean.
constexpr float kQuietestBelowMean = 1.78F;
// Until this many windows have been seen, speech may be all that was heard in them. The background
// then counts as at least 25 dB below the loudest frame, and the noise fades by 0.8 dB with each
// prediction, 24 dB in all.
constexpr uint32_t kSettledWindows = 12;
constexpr float kBelowSpeech = 0.00316F;
constexpr float kFade = 0.912F;
constexpr float kMostFaded = 0.063F;

float Power(std::span<const int16_t> samples) {
    float sum = 0;
    for (const int16_t s : samples)
        sum += static_cast<float>(s) * static_cast<float>(s);
    return sum / static_cast<float>(samples.size());
}

bool IsSilent(std::span<const int16_t> samples) {
    return std::ranges::all_of(samples, [](int16_t s) { return s == 0; });
}

// The same sample, or what a fade leaves of it.
bool IsFaded(int16_t sample, int16_t from) {
    return from >= 0 ? sample >= 0 && sample <= from : sample <= 0 && sample >= from;
}

float FadeGain(size_t at) {
    return 1 - (static_cast<float>(at) + 0.5F) / kFrameSamples;
}

std::span<const int16_t, kFrameSamples> FrameAt(std::span<const int16_t, kWindowSamples> window,
                                                size_t at) {
    return window.subspan(at).first<kFrameSamples>();
}

}  // namespace

Outage::Outage(std::unique_ptr<Predictor> predictor) : m_predictor(std::move(predictor)) {}

void Outage::Forget() noexcept {
    m_background = {};
    m_remembered = {};
    m_isOutage = false;
}

// There is none before it: the worker makes itself ready with it.
void Outage::ForgetLast() noexcept {
    Forget();
    m_predictor->ForgetLast();
}

int32_t Outage::Predict(std::span<const int16_t, kWindowSamples> window,
                        std::span<int16_t, kWindowSamples> out) noexcept {
    const bool isOutage = !HearReceived(window) && m_background.windows > 0;
    const bool isFirst = isOutage && !m_isOutage;
    if (!isOutage || isFirst) {
        const int32_t result = m_predictor->Predict(window, out);
        if (result != 0) return result;
    }
    m_isOutage = isOutage;
    if (isFirst) ShapeNoise();
    if (isOutage) FillWithNoise(window, out, isFirst);
    Remember(window, out);
    return 0;
}

bool Outage::IsOwn(FrameView frame) const noexcept {
    return std::ranges::any_of(m_remembered, [frame](const Frame &prediction) {
        return std::ranges::equal(frame, prediction, IsFaded);
    });
}

// False when no frame of the window was received.
bool Outage::HearReceived(std::span<const int16_t, kWindowSamples> window) noexcept {
    bool isAny = false;
    for (size_t at = 0; at < kWindowSamples; at += kFrameSamples) {
        const FrameView frame = FrameAt(window, at);
        if (IsSilent(frame) || IsOwn(frame)) continue;
        const float power = Power(frame);
        m_background.loudest = std::max(m_background.loudest, power);
        if (!isAny) {
            ++m_background.windows;
            m_background.power *= kForget;
            isAny = true;
        }
        if (m_background.power > 0 && power > m_background.power) continue;
        m_background.power = power;
        std::ranges::copy(frame, m_background.quietest.begin());
    }
    return isAny;
}

void Outage::Remember(std::span<const int16_t, kWindowSamples> window,
                      std::span<const int16_t, kWindowSamples> prediction) noexcept {
    for (size_t at = 0; at < kWindowSamples; at += kFrameSamples) {
        if (!IsSilent(FrameAt(window, at))) continue;
        std::ranges::copy(FrameAt(prediction, at), m_remembered[m_next].begin());
        m_next = (m_next + 1) % kRemembered;
    }
}

void Outage::ShapeNoise() noexcept {
    const std::span<float> frame = std::span(m_line).first(kFrameSamples);
    std::ranges::copy(m_background.quietest, frame.begin());
    m_burg.Fit(frame, {}, m_shape);
    float missed = 0;
    for (size_t i = kOrder; i < kFrameSamples; ++i) {
        const float error = frame[i] - InnerProduct(&frame[i - kOrder], m_shape.data(), kOrder);
        missed += error * error;
    }
    float power = missed / (kFrameSamples - kOrder);
    const float most = kBelowSpeech * m_background.loudest;
    const bool isSettled = m_background.windows >= kSettledWindows;
    if (!isSettled && m_background.power > most) power *= most / m_background.power;
    m_gain = std::sqrt(kQuietestBelowMean * power);
    m_leastGain = isSettled ? m_gain : kMostFaded * m_gain;
}

// out: in the first window the other predictor's prediction.
void Outage::FillWithNoise(std::span<const int16_t, kWindowSamples> window,
                           std::span<int16_t, kWindowSamples> out, bool isFirst) noexcept {
    std::array<Gap, kMaxGaps> gaps;
    const size_t count = FindGaps(window, gaps);
    if (!isFirst) {
        std::ranges::copy(window, out.begin());
        m_gain = std::max(m_gain * kFade, m_leastGain);
    }
    for (const Gap &gap : std::span(gaps).first(count)) {
        m_line = {};  // begins kOrder samples before the gap
        for (size_t back = 1; !isFirst && back <= std::min(kOrder, gap.begin); ++back)
            m_line[kOrder - back] = out[gap.begin - back];
        for (size_t i = 0; i < gap.end - gap.begin; ++i) {
            float &sample = m_line[kOrder + i];
            sample = InnerProduct(&m_line[i], m_shape.data(), kOrder) +
                     m_gain * WhiteNoise(++m_noiseIndex);
            const float fade = isFirst && i < kFrameSamples ? FadeGain(i) : 0;
            out[gap.begin + i] = ToSample(sample + fade * out[gap.begin + i]);
        }
    }
}

}  // namespace aiplc::worker
