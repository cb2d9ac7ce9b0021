// SPDX-License-Identifier: BSD-2-Clause
//
// The neural predictor; training/model.py and training/windows.py define it.

#ifndef AIPLC_WORKER_NEURAL_H
#define AIPLC_WORKER_NEURAL_H

#include <array>
#include <memory>

#include "candidates.h"
#include "gains.h"
#include "guard.h"
#include "network.h"
#include "predictor.h"
#include "refiner.h"
#include "short_spectra.h"
#include "spectral_features.h"
#include "steady_sound.h"
#include "window_facts.h"

namespace aiplc::worker {

// An answer of the network that must not be heard is replaced by the autoregressive one.
class Neural : public Predictor {
  public:
    explicit Neural(std::shared_ptr<const Model> model);  // throws std::bad_alloc

    // Changes the autoregressive answer from the last hole on. That answer stays where there is no
    // such hole, or no audio before it. A steady sound is continued without the network.
    int32_t Predict(std::span<const int16_t, kWindowSamples> window,
                    std::span<int16_t, kWindowSamples> out) noexcept override;

    struct Counts {
        uint64_t answers = 0;   // of the network
        uint64_t replaced = 0;  // of these
        uint64_t steady = 0;    // sounds continued in their place
    };
    const Counts &Counted() const { return m_counts; }
    // What it holds after the last prediction.
    const Network &Layers() const { return m_network; }
    const Refiner &Picture() const { return m_refiner; }
    void ForgetLast() noexcept override { m_counts = m_countsBefore; }
    void Report() const override;

  private:
    void Analyse(const WindowFacts &facts,
                 std::span<const int16_t, kWindowSamples> window) noexcept;

    Fault MakeAnswer(const WindowFacts &facts,
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
    Seen m_known{};   // the autoregressive answer
    Seen m_answer{};  // the network's
    Seen m_heard{};   // of it
    Counts m_counts;
    Counts m_countsBefore;  // the last prediction
};

}  // namespace aiplc::worker

#endif
