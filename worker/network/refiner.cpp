// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/refiner.h"

#include <algorithm>
#include <cmath>

#include "worker/model/row_arithmetic.h"

namespace aiplc::worker {

namespace {

// Of a bin, so that 8 kHz are 1 and 0 Hz is -1.
constexpr float kFrequencyStep = 1.0F / 80;

Row Power(const Row &re, const Row &im) {
    Row power{};
    for (size_t i = 0; i < kColumns; ++i)
        power.at[i] = re.at[i] * re.at[i] + im.at[i] * im.at[i] + kLeastPower;
    return power;
}

void SetLevels(const Row &power, size_t first, Row &levels) {
    for (size_t i = first; i < kSpectra; ++i)
        levels.at[i] = Level(std::log(power.at[i]));
}

// (re + i im) / (ownRe + i ownIm), of magnitude 1 where both are loud.
void SetPhase(const Row &re, const Row &im, const Row &ownRe, const Row &ownIm, const Row &root,
              Row &phaseRe, Row &phaseIm) {
    for (size_t i = 0; i < kColumns; ++i) {
        phaseRe.at[i] = (re.at[i] * ownRe.at[i] + im.at[i] * ownIm.at[i]) / root.at[i];
        phaseIm.at[i] = (im.at[i] * ownRe.at[i] - re.at[i] * ownIm.at[i]) / root.at[i];
    }
}

Row Root(const Row &a, const Row &b) {
    Row root{};
    for (size_t i = 0; i < kColumns; ++i)
        root.at[i] = std::sqrt(a.at[i] * b.at[i]);
    return root;
}

Row Later(const Row &row) {
    Row later{};
    later.at[0] = 0;
    std::copy_n(row.at, kColumns - 1, later.at + 1);
    return later;
}

// How far the phase moved since the spectrum before, beyond what the bin's centre does in a hop: a
// quarter of a turn for each bin.
void SetAdvance(const Row &re, const Row &im, const Row &power, size_t bin, Row &advanceRe,
                Row &advanceIm) {
    const Row pastRe = Later(re);
    const Row pastIm = Later(im);
    Row turnRe{};
    Row turnIm{};
    SetPhase(re, im, pastRe, pastIm, Root(power, Power(pastRe, pastIm)), turnRe, turnIm);
    constexpr float kCosines[] = {1, 0, -1, 0};
    const float cosine = kCosines[bin % 4];
    const float sine = kCosines[(bin + 3) % 4];
    for (size_t i = 0; i < kColumns; ++i) {
        advanceRe.at[i] = turnRe.at[i] * cosine + turnIm.at[i] * sine;
        advanceIm.at[i] = turnIm.at[i] * cosine - turnRe.at[i] * sine;
    }
}

}  // namespace

Refiner::Refiner(std::shared_ptr<const Model> model)
    : m_model(std::move(model)),
      m_channels(m_model->refinerInput.outputs),
      m_padded(Convolution::Padded(m_channels)),
      m_residual(kRefinedBins * m_padded),
      m_shifted(kRefinerInputs),
      m_inner(m_padded),
      m_outputs(Convolution::Padded(kRefinerOutputs)),
      m_wide((kRefinedBins + 2 * kMargin) * m_channels * kWide) {}

void Refiner::Refine(const Stage &stage, Spectra &change) noexcept {
    SetPrediction(stage, change);
    Features features;
    for (size_t bin = 0; bin < kRefinedBins; ++bin) {
        MakeFeatures(stage, bin, features);
        ProjectInput(bin, features);
    }
    for (const Model::Layer &layer : m_model->layers)
        RunLayer(layer);
    for (size_t bin = 0; bin < kRefinedBins; ++bin)
        AddGained(stage, bin, ProjectOutput(bin), change);
}

void Refiner::SetPrediction(const Stage &stage, const Spectra &change) noexcept {
    const Spectra &prediction = stage.signals[0];
    const Row &open = stage.facts.open;
    for (size_t bin = 0; bin < kRefinedBins; ++bin) {
        for (size_t i = 0; i < kColumns; ++i) {
            m_prediction.re[bin].at[i] =
                prediction.re[bin].at[i] + open.at[i] * change.re[bin].at[i];
            m_prediction.im[bin].at[i] =
                prediction.im[bin].at[i] + open.at[i] * change.im[bin].at[i];
        }
    }
}

Row Refiner::NoiseLevel(const Stage &stage, size_t bin) const noexcept {
    const size_t band = m_bands.band[bin];
    return Between(stage.noiseLevels[band], stage.noiseLevels[band + 1], m_bands.share[bin]);
}

void Refiner::MakeFeatures(const Stage &stage, size_t bin, Features &features) noexcept {
    auto next = features.begin();
    const Row &re = m_prediction.re[bin];
    const Row &im = m_prediction.im[bin];
    const Row power = Power(re, im);
    SetLevels(power, 0, *next);
    const Row &own = *next++;
    for (size_t i = 0; i < kSignals; ++i, ++next) {
        const Spectra &signal = stage.signals[i];
        const Row signalPower = Power(signal.re[bin], signal.im[bin]);
        std::copy_n(own.at, stage.first, next->at);  // the same there
        SetLevels(signalPower, stage.first, *next);
        Row &phaseRe = next[kSignals + 1];
        Row &phaseIm = next[2 * kSignals + 1];
        SetPhase(signal.re[bin], signal.im[bin], re, im, Root(power, signalPower), phaseRe,
                 phaseIm);
    }
    std::ranges::transform(NoiseLevel(stage, bin).at, (next++)->at, Level);
    next += 2 * kSignals;
    SetAdvance(re, im, power, bin, next[0], next[1]);
    next += 2;
    *next++ = stage.facts.missing;
    *next++ = stage.facts.open;
    std::ranges::fill((next++)->at, kFrequencyStep * static_cast<float>(bin) - 1);
    const size_t band = m_bands.band[bin];
    for (size_t i = 0; i < kContext; ++i) {
        const auto bands = stage.context.subspan(i * kBands, kBands);
        *next++ = Between(bands[band], bands[band + 1], m_bands.share[bin]);
    }
}

void Refiner::ProjectInput(size_t bin, const Features &features) noexcept {
    for (size_t i = 0; i < kRefinerInputs; ++i)
        std::copy_n(features[i].at, kSpectra, m_shifted[i].at + kShift);
    Convolve(m_model->refinerInput, {m_shifted.data()->at, kColumns}, 0, Onto::bias,
             std::span(m_residual).subspan(bin * m_padded, m_padded));
}

void Refiner::RunLayer(const Model::Layer &layer) noexcept {
    for (size_t bin = 0; bin < kRefinedBins; ++bin)
        Activate(ResidualStream(bin), layer.slopes, Wide(bin + kMargin), kWide, kColumns);
    for (size_t bin = 0; bin < kRefinedBins; ++bin) {
        const auto out = std::span(m_residual).subspan(bin * m_padded, m_padded);
        for (size_t tap = 0; tap < layer.conv.size(); ++tap) {
            const size_t from = bin + kMargin + tap * layer.dilation - layer.dilation;
            ConvolveHalf(layer.conv[tap], {Wide(from), kWide}, layer.dilation, Onto::sum, out);
        }
    }
}

std::span<const Row, kRefinerOutputs> Refiner::ProjectOutput(size_t bin) noexcept {
    Activate(ResidualStream(bin), m_model->refinerSlopes, m_inner.data()->at, kColumns, kColumns);
    ConvolveHalf(m_model->refinerOutput, {m_inner.data()->at, kColumns}, 0, Onto::bias, m_outputs);
    const auto gains = std::span(m_outputs).first<kRefinerOutputs>();
    for (Row &gain : gains) {
        std::copy_n(gain.at + kColumns / 2, kColumns / 2, gain.at + kRefined);
        std::fill_n(gain.at, kRefined, 0.0F);
    }
    return gains;
}

void Refiner::AddGained(const Stage &stage, size_t bin, std::span<const Row, kRefinerOutputs> gains,
                        Spectra &change) const noexcept {
    Row &re = change.re[bin];
    Row &im = change.im[bin];
    constexpr size_t kGained = 1 + kSignals;
    AddProduct(gains[0], gains[kGained], m_prediction.re[bin], m_prediction.im[bin], re, im);
    for (size_t i = 0; i < kSignals; ++i)
        AddProduct(gains[1 + i], gains[kGained + 1 + i], stage.signals[i].re[bin],
                   stage.signals[i].im[bin], re, im);
    const Row level = NoiseLevel(stage, bin);
    Row gain{};
    for (size_t i = kRefined; i < kSpectra; ++i)
        gain.at[i] = gains[2 * kGained].at[i] * std::exp(level.at[i] / 2);
    AddProduct(gain, {}, stage.noise.re[bin], stage.noise.im[bin], re, im);
}

}  // namespace aiplc::worker
