// SPDX-License-Identifier: BSD-2-Clause
//
// What classical signal processing has to say of a window's last hole: the signals that the network
// is fed with.

#ifndef AIPLC_WORKER_CANDIDATES_H
#define AIPLC_WORKER_CANDIDATES_H

#include <array>
#include <cstdint>
#include <span>

#include "autoregressive.h"
#include "holes.h"
#include "predictor.h"

namespace aiplc::worker {

class Candidates {
  public:
    enum Kind : size_t {
        answer,         // the autoregressive predictor's answer
        forward,        // its three extrapolations, see autoregressive.h
        backward,       //
        late,           //
        pitchForward,   // the pitch cycle before the hole, repeated to the end of the window
        pitchBackward,  // the one after it, repeated in the hole; pitchForward where there is none
    };
    static constexpr size_t kCount = 6;
    static constexpr size_t kBegin = 640;          // the first sample that the signals hold
    static constexpr size_t kEarliestHole = 1280;  // requests have no last hole before it
    using Signal = std::array<int16_t, kWindowSamples - kBegin>;

    // Fills the window as the autoregressive predictor does, and makes the signals. False where
    // that is all that can be done and the signals mean nothing: a window without a hole, without
    // audio before its last hole, or with an older hole than any request has.
    bool Make(std::span<const int16_t, kWindowSamples> window,
              std::span<int16_t, kWindowSamples> filled) noexcept;

    // Of the last Make that returned true. Before the hole all are the same.
    const Signal &operator[](Kind kind) const { return m_signals[kind]; }
    const Hole &LastHole() const { return m_hole; }

  private:
    void Store(const Autoregressive::Signal &signal, Kind kind) noexcept;

    Autoregressive m_autoregressive;
    Hole m_hole;
    std::array<Signal, kCount> m_signals{};
    Autoregressive::Signal m_scratch{};
    std::array<float, kWindowSamples> m_reversed{};
};

}  // namespace aiplc::worker

#endif
