// SPDX-License-Identifier: BSD-2-Clause
//
// Proposals of classical signal processing for the last gap of a window. The network starts from
// these signals.

#ifndef AIPLC_WORKER_CANDIDATES_H
#define AIPLC_WORKER_CANDIDATES_H

#include <array>
#include <cstdint>
#include <span>

#include "worker/classical/autoregressive.h"
#include "worker/window/gaps.h"
#include "worker/window/predictor.h"

namespace aiplc::worker {

class Candidates {
  public:
    enum Kind : size_t {
        autoregressive,  // the autoregressive prediction
        forward,         // its three extrapolations, see autoregressive.h
        backward,        //
        distant,         //
        pitchForward,    // the pitch cycle before the gap, repeated to the end of the window
        pitchBackward,   // the one after it, repeated in the gap; pitchForward where there is none
    };
    static constexpr size_t kCount = 6;
    static constexpr size_t kBegin = 640;         // the first sample that the signals hold
    static constexpr size_t kEarliestGap = 1280;  // requests have no last gap before it
    using Signal = std::array<int16_t, kWindowSamples - kBegin>;

    // Fills the window as the autoregressive predictor does, and makes the signals. False where
    // that is all that can be done and the signals mean nothing: a window without a gap, without
    // audio before its last gap, or with an older gap than any request has.
    bool Make(std::span<const int16_t, kWindowSamples> window,
              std::span<int16_t, kWindowSamples> filled) noexcept;

    // Of the last Make that returned true. Before the gap all are the same.
    const Signal &operator[](Kind kind) const { return m_signals[kind]; }
    const Gap &LastGap() const { return m_gap; }

  private:
    void Store(const Autoregressive::Signal &signal, Kind kind) noexcept;

    Autoregressive m_autoregressive;
    Gap m_gap;
    std::array<Signal, kCount> m_signals{};
    Autoregressive::Signal m_scratch{};
    std::array<float, kWindowSamples> m_reversed{};
};

}  // namespace aiplc::worker

#endif
