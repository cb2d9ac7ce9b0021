// SPDX-License-Identifier: BSD-2-Clause

#include "neural.h"

#include <algorithm>

#include "sample.h"

namespace aiplc::worker {

static_assert(kSignals == Candidates::kCount && kSeenBegin == Candidates::kBegin);

namespace {

// Samples over which the change sets in.
constexpr size_t kRamp = 64;

}  // namespace

Neural::Neural(std::shared_ptr<const Model> model) : m_network(std::move(model)) {}

int32_t Neural::Predict(std::span<const int16_t, kWindowSamples> window,
                        std::span<int16_t, kWindowSamples> out) noexcept {
    if (!m_candidates.Make(window, out)) return 0;
    const WindowFacts facts(window);
    Analyse(facts, window);
    m_features.Make(m_signals, facts, m_network.Features(), m_noiseLevels);
    m_network.Run();
    const size_t begin = facts.hole.begin;
    m_gains.Apply(m_network.Outputs(), m_signals, m_noise, m_noiseLevels,
                  ShortSpectra::FirstSpectrum(begin), m_change);
    m_shortSpectra.Synthesise(m_change, begin, m_samples);
    const auto answer = out.subspan<kSeenBegin>();
    for (size_t i = begin; i < kSeenSamples; ++i) {
        const float ramp = std::min(static_cast<float>(i - begin + 1) / kRamp, 1.0F);
        m_samples[i] = static_cast<float>(answer[i]) + ramp * facts.scale * m_samples[i];
    }
    std::transform(m_samples.begin() + static_cast<std::ptrdiff_t>(begin), m_samples.end(),
                   answer.begin() + static_cast<std::ptrdiff_t>(begin), ToSample);
    return 0;
}

// The signals are the same before the hole, so their spectra are.
void Neural::Analyse(const WindowFacts &facts,
                     std::span<const int16_t, kWindowSamples> window) noexcept {
    const size_t differs = ShortSpectra::FirstSpectrum(facts.hole.begin);
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
