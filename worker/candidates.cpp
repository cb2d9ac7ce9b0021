// SPDX-License-Identifier: BSD-2-Clause

#include "candidates.h"

#include <algorithm>

#include "pitch_repetition.h"
#include "sample.h"

namespace aiplc::worker {

bool Candidates::Make(std::span<const int16_t, kWindowSamples> window,
                      std::span<int16_t, kWindowSamples> filled) noexcept {
    m_autoregressive.Predict(window, filled);
    std::array<Hole, kMaxHoles> holes;
    const size_t count = FindHoles(window, holes);
    if (count == 0 || holes[count - 1].begin < kEarliestHole) return false;
    m_hole = holes[count - 1];
    const auto past = std::span(m_autoregressive.Filled()).first(m_hole.begin);
    if (std::ranges::all_of(past, [](float s) { return s == 0; })) return false;

    std::ranges::copy(filled.subspan(kBegin), m_signals[answer].begin());
    Store(m_autoregressive.Forward(), forward);
    Store(m_autoregressive.Backward(), backward);
    Store(m_autoregressive.Late(), late);

    std::ranges::copy(m_autoregressive.Backward(), m_scratch.begin());
    RepeatPitch(past, std::span(m_scratch).subspan(m_hole.begin));
    Store(m_scratch, pitchForward);
    const auto received = window.subspan(m_hole.end);
    const auto made = std::span(m_scratch).subspan(m_hole.begin, m_hole.end - m_hole.begin);
    if (!received.empty()) {
        const auto future = std::span(m_reversed).first(received.size());
        std::reverse_copy(received.begin(), received.end(), future.begin());
        RepeatPitch(future, made);
        std::ranges::reverse(made);
        std::ranges::copy(received, m_scratch.begin() + static_cast<std::ptrdiff_t>(m_hole.end));
    }
    Store(m_scratch, pitchBackward);
    return true;
}

void Candidates::Store(const Autoregressive::Signal &signal, Kind kind) noexcept {
    std::ranges::copy(m_signals[answer], m_signals[kind].begin());
    const size_t open = m_hole.begin - kBegin;
    std::transform(signal.begin() + static_cast<std::ptrdiff_t>(m_hole.begin), signal.end(),
                   m_signals[kind].begin() + static_cast<std::ptrdiff_t>(open), ToSample);
}

}  // namespace aiplc::worker
