// SPDX-License-Identifier: BSD-2-Clause
//
// Fills holes by extrapolating the audio before them forwards and the audio after them backwards
// with autoregressive models, and fading one into the other (extrapolation from both sides: I.
// Kauppinen and K. Roth, "Audio signal extrapolation - theory and applications", DAFx 2002).

#ifndef AIPLC_WORKER_AUTOREGRESSIVE_H
#define AIPLC_WORKER_AUTOREGRESSIVE_H

#include <array>

#include "burg.h"
#include "holes.h"
#include "predictor.h"

namespace aiplc::worker {

// The oldest hole is filled first and counts as known for the later ones. A hole that reaches the
// end or the start of the window is filled from its one side and fades. A window without received
// audio stays silent.
class Autoregressive : public Predictor {
  public:
    // Received samples after a hole that take part in the fade; all other received samples come
    // back as they were.
    static constexpr size_t kJoinSamples = 64;

    void Predict(std::span<const int16_t, kWindowSamples> window,
                 std::span<int16_t, kWindowSamples> out) noexcept override;

    // The two extrapolations that the last Predict cross-faded: the window with every hole filled
    // from before it, and from after it. A hole with one open end has the same in both, without
    // the fade. Elsewhere they are the window, but for the join, into which Forward runs on.
    using Signal = std::array<float, kWindowSamples>;
    const Signal &Forward() const { return m_forwardFill; }
    const Signal &Backward() const { return m_backwardFill; }

  private:
    // The samples a model predicts from, followed by those it made.
    using Line = std::array<float, Burg::kMaxOrder + kWindowSamples + kJoinSamples>;

    void Fill(const Hole &hole, size_t futureEnd) noexcept;
    std::span<float> Extrapolate(std::span<const float> near, std::span<const float> far,
                                 size_t count, Line &line) noexcept;

    Burg m_burg;
    std::array<float, Burg::kMaxOrder> m_predictor{};
    Signal m_signal{};  // the window, holes filled so far
    Signal m_forwardFill{};
    Signal m_backwardFill{};
    std::array<float, Burg::kMaxSegment> m_reversed{};  // the samples after the hole
    Line m_forward{};
    Line m_backward{};
};

}  // namespace aiplc::worker

#endif
