// SPDX-License-Identifier: BSD-2-Clause
//
// Tones, the digits of a telephone and held notes, which go on as they are. The network was trained
// on speech and spoils them: in its prediction a tone loses its phase.

#ifndef AIPLC_WORKER_STEADY_SOUND_H
#define AIPLC_WORKER_STEADY_SOUND_H

#include <array>
#include <cstdint>
#include <span>

#include "worker/classical/burg.h"
#include "worker/classical/candidates.h"

namespace aiplc::worker {

// A sound is steady when the 20 ms before the gap come as an autoregressive model of the audio
// before them extrapolates it: with an error 20 dB below them. Then the same is right for the gap.
//
// The audio behind the gap has no say. A SILK decoder has lost its state there, and its first
// frame after a loss is a tone of a quarter of the amplitude, with another phase.
class SteadySound {
  public:
    // candidates: of the window, from a Make that returned true. out: that Make's prediction. When
    // the sound before the last gap is steady, and the gap has a far side, replaces the gap and its
    // join by the forward extrapolation and returns true; otherwise leaves out as it is.
    //
    // The part of the last 20 ms that the model did not extrapolate, the noise of the codec, is
    // repeated in the gap.
    bool Continue(const Candidates &candidates, std::span<int16_t, kWindowSamples> out) noexcept;

  private:
    bool IsSteady(std::span<const int16_t> past) noexcept;

    Burg m_burg;
    std::array<float, Burg::kMaxOrder> m_predictor{};
    std::array<float, Burg::kMaxSegment + kFrameSamples> m_line{};  // audio and its extrapolation
    std::array<float, kFrameSamples> m_missed{};                    // of the 20 ms before the gap
};

}  // namespace aiplc::worker

#endif
