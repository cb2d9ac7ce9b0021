// SPDX-License-Identifier: BSD-2-Clause
//
// Outages that last longer than any prediction is worth. A predictor that is fed with its own
// predictions again and again ends in a buzz, which the library's prediction limit then interrupts
// every 120 ms.

#ifndef AIPLC_WORKER_OUTAGE_H
#define AIPLC_WORKER_OUTAGE_H

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "worker/classical/burg.h"
#include "worker/window/gaps.h"
#include "worker/window/predictor.h"

namespace aiplc::worker {

// Stands before another predictor and passes the windows on to it, as long as they hold a received
// frame. From the first window without one, 140 ms into an outage, the predictions are quiet noise
// with level and spectrum of the background: the quietest frame of the last windows. The first of
// them fades the other predictor's prediction out over 20 ms.
//
// The predictions depend on earlier windows of the same call, and on nothing else. Predict
// allocates nothing.
class Outage : public Predictor {
  public:
    explicit Outage(std::unique_ptr<Predictor> predictor);

    int32_t Predict(std::span<const int16_t, kWindowSamples> window,
                    std::span<int16_t, kWindowSamples> out) noexcept override;

    // As if there had been no window yet: for the next call.
    void Forget() noexcept;
    void ForgetLast() noexcept override;
    void Report() const override { m_predictor->Report(); }

  private:
    using Frame = std::array<int16_t, kFrameSamples>;
    using FrameView = std::span<const int16_t, kFrameSamples>;

    // Predicted frames that a window may still hold: those of eight frames back, predicted three at
    // a time, each of them twice.
    static constexpr size_t kRemembered = 24;

    struct Background {
        Frame quietest{};
        float power = 0;       // of quietest, and growing since; squared 16-bit steps
        float loudest = 0;     // power of the loudest received frame so far
        uint32_t windows = 0;  // with received frames, so far
    };

    bool IsOwn(FrameView frame) const noexcept;
    [[nodiscard]] bool HearReceived(std::span<const int16_t, kWindowSamples> window) noexcept;
    void Remember(std::span<const int16_t, kWindowSamples> window,
                  std::span<const int16_t, kWindowSamples> prediction) noexcept;
    void ShapeNoise() noexcept;
    void FillWithNoise(std::span<const int16_t, kWindowSamples> window,
                       std::span<int16_t, kWindowSamples> out, bool isFirst) noexcept;

    static constexpr size_t kOrder = 16;

    std::unique_ptr<Predictor> m_predictor;
    Background m_background;
    std::array<Frame, kRemembered> m_remembered{};
    size_t m_next = 0;        // of m_remembered
    bool m_isOutage = false;  // the last prediction was noise

    Burg m_burg;
    std::array<float, kOrder> m_shape{};  // of the background: predicts a sample from those before
    float m_gain = 0;                     // of white noise of variance 1, in 16-bit steps
    float m_leastGain = 0;                // to which it fades
    uint32_t m_noiseIndex = 0;            // of the last sample of it
    std::array<float, kOrder + kWindowSamples> m_line{};  // noise and the samples before it
};

}  // namespace aiplc::worker

#endif
