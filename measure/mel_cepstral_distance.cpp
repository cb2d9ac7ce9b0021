// SPDX-License-Identifier: BSD-2-Clause

#include "measure/mel_cepstral_distance.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace aiplc::measure {
namespace {

constexpr double kBinHz = 31.25;
constexpr double kTopHz = 8000.0;
constexpr size_t kBinsToTop = 257;

double MelOfHz(double hz) {
    return 2595.0 * std::log10(1.0 + hz / 700.0);
}
double HzOfMel(double mel) {
    return 700.0 * (std::pow(10.0, mel / 2595.0) - 1.0);
}

}  // namespace

MelCepstralDistance::MelCepstralDistance() {
    const double step = MelOfHz(kTopHz) / (kBands + 1);
    for (size_t b = 0; b < kBands; ++b) {
        const double low = HzOfMel(step * static_cast<double>(b));
        const double middle = HzOfMel(step * static_cast<double>(b + 1));
        const double high = HzOfMel(step * static_cast<double>(b + 2));
        Band &band = m_bands[b];
        for (size_t k = 0; k < kBinsToTop; ++k) {
            const double hz = kBinHz * static_cast<double>(k);
            const double weight =
                std::min((hz - low) / (middle - low), (high - hz) / (high - middle));
            if (weight <= 0.0) continue;
            if (band.weights.empty()) band.firstBin = k;
            band.weights.push_back(weight);
        }
    }
    for (size_t c = 0; c < kCoefficients; ++c) {
        for (size_t b = 0; b < kBands; ++b) {
            const double phase = std::numbers::pi / kBands * (static_cast<double>(b) + 0.5) *
                                 static_cast<double>(c + 1);
            m_cosines[c][b] = std::cos(phase) / kBands;
        }
    }
}

std::array<double, MelCepstralDistance::kCoefficients> MelCepstralDistance::Cepstrum(
    std::span<const double> power) const {
    std::array<double, kBands> logs{};
    for (size_t b = 0; b < kBands; ++b) {
        double sum = 1.0;
        for (size_t i = 0; i < m_bands[b].weights.size(); ++i)
            sum += m_bands[b].weights[i] * power[m_bands[b].firstBin + i];
        logs[b] = std::log(sum);
    }
    std::array<double, kCoefficients> cepstrum{};
    for (size_t c = 0; c < kCoefficients; ++c) {
        for (size_t b = 0; b < kBands; ++b)
            cepstrum[c] += m_cosines[c][b] * logs[b];
    }
    return cepstrum;
}

double MelCepstralDistance::Db(std::span<const double> power,
                               std::span<const double> reference) const {
    const auto one = Cepstrum(power);
    const auto other = Cepstrum(reference);
    double sum = 0.0;
    for (size_t c = 0; c < kCoefficients; ++c)
        sum += (one[c] - other[c]) * (one[c] - other[c]);
    return 10.0 / std::numbers::ln10 * std::sqrt(2.0 * sum);
}

}  // namespace aiplc::measure
