// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/neural.h"

#include <algorithm>
#include <cstdio>

#include "src/adapter/protocol.h"
#include "worker/network/window_noise.h"
#include "worker/window/sample.h"

namespace aiplc::worker {

static_assert(kSignals == Candidates::kCount && kSeenBegin == Candidates::kBegin);

namespace {

// Samples over which the change sets in.
constexpr size_t kRamp = 64;

}  // namespace

Neural::Neural(std::shared_ptr<const Model> model)
    : m_network(model), m_refiner(std::move(model)) {}

int32_t Neural::Predict(std::span<const int16_t, kWindowSamples> window,
                        std::span<int16_t, kWindowSamples> out) noexcept {
    m_countsBefore = m_counts;
    if (!m_candidates.Make(window, out)) return 0;
    if (m_steadySound.Continue(m_candidates, out)) {
        ++m_counts.steady;
        return 0;
    }
    ++m_counts.predictions;
    const WindowFacts facts(window);
    Analyse(facts, window);
    m_features.Make(m_signals, facts, m_network.Features(), m_noiseLevels);
    m_network.Run();
    const auto seen = out.subspan<kSeenBegin>();
    if (MakePrediction(facts, seen) != Fault::none) {
        ++m_counts.replaced;
        return 0;
    }
    std::ranges::transform(std::span(m_prediction).subspan(facts.gap.begin),
                           seen.subspan(facts.gap.begin).begin(), ToSample);
    return 0;
}

// Applies the network's outputs to the classical prediction; the result goes into m_prediction.
Fault Neural::MakePrediction(const WindowFacts &facts,
                             std::span<const int16_t, kSeenSamples> known) noexcept {
    const size_t begin = facts.gap.begin;
    const size_t first = ShortSpectra::FirstSpectrum(begin);
    m_gains.Apply(m_network.Outputs(), m_signals, m_noise, m_noiseLevels, first, m_change);
    m_refiner.Refine({m_signals, m_noise, m_noiseLevels, m_network.Context(), facts, first},
                     m_change);
    m_shortSpectra.Synthesise(m_change, begin, m_samples);
    std::ranges::copy(known, m_classical.begin());
    m_prediction = m_classical;
    for (size_t i = begin; i < kSeenSamples; ++i) {
        const float ramp = std::min(static_cast<float>(i - begin + 1) / kRamp, 1.0F);
        m_prediction[i] += ramp * facts.scale * m_samples[i];
    }
    m_heard = m_prediction;
    MakeHeard(m_heard, facts.gap);
    std::ranges::transform(m_heard, m_samples.begin(),
                           [&facts](float s) { return s / facts.scale; });
    m_shortSpectra.Analyse(m_samples, first, m_change);
    return Examine({m_heard, m_change}, {m_classical, m_signals[Candidates::autoregressive]},
                   facts);
}

void Neural::Report() const {
    if (m_counts.replaced == 0) return;
    std::fprintf(
        stderr,
        "%s: %llu of %llu predictions of the model were out of bounds; the autoregressive ones "
        "took their place\n",
        protocol::kWorkerExecutable, static_cast<unsigned long long>(m_counts.replaced),
        static_cast<unsigned long long>(m_counts.predictions));
}

// The signals are the same before the gap, so their spectra are.
void Neural::Analyse(const WindowFacts &facts,
                     std::span<const int16_t, kWindowSamples> window) noexcept {
    const size_t differs = ShortSpectra::FirstSpectrum(facts.gap.begin);
    for (size_t kind = 0; kind < kSignals; ++kind) {
        const Candidates::Signal &signal = m_candidates[static_cast<Candidates::Kind>(kind)];
        std::ranges::transform(signal, m_samples.begin(),
                               [&facts](int16_t s) { return static_cast<float>(s) / facts.scale; });
        m_shortSpectra.Analyse(m_samples, kind == 0 ? 0 : differs, m_signals[kind]);
        for (size_t bin = 0; kind != 0 && bin < kBins; ++bin) {
            std::copy_n(m_signals[0].re[bin].at, differs, m_signals[kind].re[bin].at);
            std::copy_n(m_signals[0].im[bin].at, differs, m_signals[kind].im[bin].at);
        }
    }
    MakeNoise(window, m_samples);
    m_shortSpectra.Analyse(m_samples, differs, m_noise);
}

}  // namespace aiplc::worker
