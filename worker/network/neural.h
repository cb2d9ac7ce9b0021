// SPDX-License-Identifier: BSD-2-Clause
//
// The neural predictor; training/model.py and training/windows.py define it.

#ifndef AIPLC_WORKER_NEURAL_H
#define AIPLC_WORKER_NEURAL_H

#include <array>
#include <memory>

#include "worker/classical/candidates.h"
#include "worker/classical/steady_sound.h"
#include "worker/network/gains.h"
#include "worker/network/guard.h"
#include "worker/network/network.h"
#include "worker/network/refiner.h"
#include "worker/network/short_spectra.h"
#include "worker/network/spectral_features.h"
#include "worker/network/window_facts.h"
#include "worker/window/predictor.h"

namespace aiplc::worker {

// A prediction of the network that must not be heard is replaced by the autoregressive one.
class Neural : public Predictor {
  public:
    explicit Neural(std::shared_ptr<const Model> model);  // throws std::bad_alloc

    // Changes the autoregressive prediction from the last gap on. That prediction stays where there
    // is no such gap, or no audio before it. A steady sound is continued without the network.
    int32_t Predict(std::span<const int16_t, kWindowSamples> window,
                    std::span<int16_t, kWindowSamples> out) noexcept override;

    struct Counts {
        uint64_t predictions = 0;  // of the network
        uint64_t replaced = 0;     // of these
        uint64_t steady = 0;       // sounds continued in their place
    };
    const Counts &Counted() const { return m_counts; }
    void ForgetLast() noexcept override { m_counts = m_countsBefore; }
    void Report() const override;

  private:
    void Analyse(const WindowFacts &facts,
                 std::span<const int16_t, kWindowSamples> window) noexcept;

    Fault MakePrediction(const WindowFacts &facts,
                         std::span<const int16_t, kSeenSamples> known) noexcept;

    using Seen = std::array<float, kSeenSamples>;

    Candidates m_candidates;
    SteadySound m_steadySound;
    ShortSpectra m_shortSpectra;
    Features m_features;
    Network m_network;
    Gains m_gains;
    Refiner m_refiner;
    SignalSpectra m_signals{};
    Spectra m_noise{};
    BandLevels m_noiseLevels{};
    Spectra m_change{};
    Seen m_samples{};
    Seen m_classical{};   // the autoregressive prediction
    Seen m_prediction{};  // the network's
    Seen m_heard{};       // of it
    Counts m_counts;
    Counts m_countsBefore;  // the last prediction
};

}  // namespace aiplc::worker

#endif
