// SPDX-License-Identifier: BSD-2-Clause
//
// Fills gaps by extrapolating the audio before them forwards and the audio after them backwards
// with autoregressive models, and fading one into the other (extrapolation from both sides: I.
// Kauppinen and K. Roth, "Audio signal extrapolation - theory and applications", DAFx 2002).

#ifndef AIPLC_WORKER_AUTOREGRESSIVE_H
#define AIPLC_WORKER_AUTOREGRESSIVE_H

#include <array>

#include "worker/classical/burg.h"
#include "worker/window/gaps.h"
#include "worker/window/predictor.h"

namespace aiplc::worker {

// The oldest gap is filled first and counts as known for the later ones. A gap that reaches the
// end or the start of the window is filled from its one side and fades. A window without received
// audio stays silent.
class Autoregressive : public Predictor {
  public:
    // Received samples after a gap that take part in the fade; all other received samples come
    // back as they were.
    static constexpr size_t kJoinSamples = 64;

    int32_t Predict(std::span<const int16_t, kWindowSamples> window,
                    std::span<int16_t, kWindowSamples> out) noexcept override;

    using Signal = std::array<float, kWindowSamples>;

    // Extrapolations of the last Predict for the last gap, each the window with earlier gaps filled
    // and from this gap's start on:
    // - Forward: extrapolated from before it, through the gap and on to the end of the window;
    // - Backward: the gap extrapolated from the received audio after it, which follows;
    // - Late: gap and the frame after it extrapolated from the frames behind that one. The first
    //   frame after a loss is the codec's worst: its decoder has lost its state.
    // Where a side has no audio, each is what the other sides give, without the fade.
    const Signal &Forward() const { return m_forwardFill; }
    const Signal &Backward() const { return m_backwardFill; }
    const Signal &Distant() const { return m_distantFill; }
    // The window with all gaps filled, not rounded.
    const Signal &Filled() const { return m_signal; }

  private:
    // The samples a model predicts from, followed by those it made.
    using Line = std::array<float, Burg::kMaxOrder + kWindowSamples + kJoinSamples>;

    void Fill(const Gap &gap, size_t futureEnd) noexcept;
    void FillDistant(const Gap &gap) noexcept;
    std::span<float> Extrapolate(std::span<const float> near, std::span<const float> far,
                                 size_t count, Line &line) noexcept;

    Burg m_burg;
    std::array<float, Burg::kMaxOrder> m_predictor{};
    Signal m_signal{};  // the window, gaps filled so far
    Signal m_forwardFill{};
    Signal m_backwardFill{};
    Signal m_distantFill{};
    std::array<float, Burg::kMaxSegment> m_reversed{};  // the samples after the gap
    Line m_forward{};
    Line m_backward{};
};

}  // namespace aiplc::worker

#endif
