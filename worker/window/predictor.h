// SPDX-License-Identifier: BSD-2-Clause
//
// The interface of all predictors.

#ifndef AIPLC_WORKER_PREDICTOR_H
#define AIPLC_WORKER_PREDICTOR_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace aiplc::worker {

inline constexpr size_t kFrameSamples = 320;  // 20 ms at 16 kHz
inline constexpr size_t kWindowFrames = 8;
inline constexpr size_t kWindowSamples = kFrameSamples * kWindowFrames;

// Fills the missing frames of a window: eight frames of 16 kHz audio, oldest first, in and out. A
// missing frame is all zero. The output depends on the window alone, not on earlier calls, unless a
// predictor says otherwise. Predict allocates nothing and runs on one thread at a time.
class Predictor {
  public:
    Predictor() = default;
    Predictor(const Predictor &) = delete;
    Predictor &operator=(const Predictor &) = delete;
    virtual ~Predictor() = default;

    // 0, or the result code that the library gets in place of a prediction; out means nothing then.
    virtual int32_t Predict(std::span<const int16_t, kWindowSamples> window,
                            std::span<int16_t, kWindowSamples> out) noexcept = 0;

    // Nobody asked for the last prediction: it leaves no trace, and Report leaves it out.
    virtual void ForgetLast() noexcept {}
    // Reports on stderr predictions that had to be replaced, if there were any.
    virtual void Report() const {}
};

}  // namespace aiplc::worker

#endif
