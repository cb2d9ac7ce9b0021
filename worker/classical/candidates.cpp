// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/candidates.h"

#include <algorithm>

#include "worker/classical/pitch_repetition.h"
#include "worker/window/sample.h"

namespace aiplc::worker {

bool Candidates::Make(std::span<const int16_t, kWindowSamples> window,
                      std::span<int16_t, kWindowSamples> filled) noexcept {
    m_autoregressive.Predict(window, filled);
    std::array<Gap, kMaxGaps> gaps;
    const size_t count = FindGaps(window, gaps);
    if (count == 0 || gaps[count - 1].begin < kEarliestGap) return false;
    m_gap = gaps[count - 1];
    const auto past = std::span(m_autoregressive.Filled()).first(m_gap.begin);
    if (std::ranges::all_of(past, [](float s) { return s == 0; })) return false;

    std::ranges::copy(filled.subspan(kBegin), m_signals[autoregressive].begin());
    Store(m_autoregressive.Forward(), forward);
    Store(m_autoregressive.Backward(), backward);
    Store(m_autoregressive.Distant(), distant);

    std::ranges::copy(m_autoregressive.Backward(), m_scratch.begin());
    RepeatPitch(past, std::span(m_scratch).subspan(m_gap.begin));
    Store(m_scratch, pitchForward);
    const auto received = window.subspan(m_gap.end);
    const auto made = std::span(m_scratch).subspan(m_gap.begin, m_gap.end - m_gap.begin);
    if (!received.empty()) {
        const auto future = std::span(m_reversed).first(received.size());
        std::reverse_copy(received.begin(), received.end(), future.begin());
        RepeatPitch(future, made);
        std::ranges::reverse(made);
        std::ranges::copy(received, m_scratch.begin() + static_cast<std::ptrdiff_t>(m_gap.end));
    }
    Store(m_scratch, pitchBackward);
    return true;
}

void Candidates::Store(const Autoregressive::Signal &signal, Kind kind) noexcept {
    std::ranges::copy(m_signals[autoregressive], m_signals[kind].begin());
    const size_t open = m_gap.begin - kBegin;
    std::transform(signal.begin() + static_cast<std::ptrdiff_t>(m_gap.begin), signal.end(),
                   m_signals[kind].begin() + static_cast<std::ptrdiff_t>(open), ToSample);
}

}  // namespace aiplc::worker
