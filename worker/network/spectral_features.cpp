// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/spectral_features.h"

#include <algorithm>
#include <cmath>

namespace aiplc::worker {

namespace {

// Adds values to the two bands that the bin is part of.
void AddToBands(const Row &values, float share, Row &lower, Row &upper) {
    for (size_t i = 0; i < kColumns; ++i) {
        lower.at[i] += (1 - share) * values.at[i];
        upper.at[i] += share * values.at[i];
    }
}

// The levels with the gap's replaced by a line between its sides, or by the near side's where the
// far one is out of sight.
void Bridge(const Gap &gap, BandLevels &levels) {
    constexpr size_t kReach = kSpectrumSize / 2;
    const size_t left = (gap.begin - kReach) / kHop;  // the last spectrum clear of the gap
    const size_t after = (gap.end + kReach + kHop - 1) / kHop;
    const bool ends = after + 3 <= kSpectra;
    const size_t right = ends ? after : left;
    for (Row &level : levels) {
        const float start = level.at[left];
        const float rise = level.at[right] - start;
        for (size_t i = left + 1; i < (ends ? right : kSpectra); ++i) {
            const float share =
                ends ? static_cast<float>(i - left) / static_cast<float>(right - left) : 0.0F;
            level.at[i] = start + share * rise;
        }
    }
}

}  // namespace

void Features::Make(const SignalSpectra &signals, const WindowFacts &facts,
                    std::span<Row, kInputs> features, BandLevels &noiseLevels) noexcept {
    const auto binLevels = features.first<kBins>();
    const auto otherLevels = features.subspan<kBins, kOthers * kBands>();
    const auto noise = features.subspan<kBins + kOthers * kBands, kBands>();
    const auto phasesRe = features.subspan<kBins + kSignals * kBands, kOthers * kBands>();
    const auto phasesIm =
        features.subspan<kBins + (kSignals + kOthers) * kBands, kOthers * kBands>();
    const auto rest = features.last<3>();

    AddClassical(signals[0], binLevels);
    for (size_t other = 0; other < kOthers; ++other) {
        AddOther(signals[other + 1], signals[0]);
        for (size_t band = 0; band < kBands; ++band) {
            const size_t row = other * kBands + band;
            for (size_t i = 0; i < kSpectra; ++i) {
                const float scale = m_bands.scale[band];
                const float power = m_other[band].at[i] * scale + kLeastPower;
                const float root = scale / std::sqrt(power * m_prediction[band].at[i]);
                otherLevels[row].at[i] = Level(std::log(power));
                phasesRe[row].at[i] = m_crossRe[band].at[i] * root;
                phasesIm[row].at[i] = m_crossIm[band].at[i] * root;
            }
        }
    }
    for (size_t band = 0; band < kBands; ++band)
        std::ranges::transform(m_prediction[band].at, noiseLevels[band].at,
                               [](float power) { return std::log(power); });
    Bridge(facts.gap, noiseLevels);
    for (size_t band = 0; band < kBands; ++band)
        std::ranges::transform(noiseLevels[band].at, noise[band].at, Level);
    rest[0] = facts.missing;
    rest[1] = facts.open;
    std::ranges::fill(rest[2].at, 0.1F * std::log(facts.scale / 1000));
}

// The bins' levels, and the bands' mean power into m_prediction.
void Features::AddClassical(const Spectra &classical, std::span<Row, kBins> binLevels) noexcept {
    m_prediction.fill({});
    Row power{};
    for (size_t bin = 0; bin < kBins; ++bin) {
        const Row &re = classical.re[bin];
        const Row &im = classical.im[bin];
        for (size_t i = 0; i < kColumns; ++i)
            power.at[i] = re.at[i] * re.at[i] + im.at[i] * im.at[i];
        const size_t band = m_bands.band[bin];
        AddToBands(power, m_bands.share[bin], m_prediction[band], m_prediction[band + 1]);
        std::ranges::transform(power.at, binLevels[bin].at,
                               [](float p) { return Level(std::log(p + kLeastPower)); });
    }
    for (size_t band = 0; band < kBands; ++band) {
        for (float &p : m_prediction[band].at)
            p = p * m_bands.scale[band] + kLeastPower;
    }
}

void Features::AddOther(const Spectra &other, const Spectra &classical) noexcept {
    for (BandPower *sums : {&m_other, &m_crossRe, &m_crossIm})
        sums->fill({});
    Row power{};
    Row crossRe{};
    Row crossIm{};
    for (size_t bin = 0; bin < kBins; ++bin) {
        const Row &re = other.re[bin];
        const Row &im = other.im[bin];
        const Row &ownRe = classical.re[bin];
        const Row &ownIm = classical.im[bin];
        for (size_t i = 0; i < kColumns; ++i) {
            power.at[i] = re.at[i] * re.at[i] + im.at[i] * im.at[i];
            crossRe.at[i] = re.at[i] * ownRe.at[i] + im.at[i] * ownIm.at[i];
            crossIm.at[i] = im.at[i] * ownRe.at[i] - re.at[i] * ownIm.at[i];
        }
        const size_t band = m_bands.band[bin];
        const float share = m_bands.share[bin];
        AddToBands(power, share, m_other[band], m_other[band + 1]);
        AddToBands(crossRe, share, m_crossRe[band], m_crossRe[band + 1]);
        AddToBands(crossIm, share, m_crossIm[band], m_crossIm[band + 1]);
    }
}

}  // namespace aiplc::worker
