// SPDX-License-Identifier: BSD-2-Clause

#include "measure/log_spectral_distance.h"

#include <cmath>

namespace aiplc::measure {
namespace {

constexpr double kFloorPower = 1.0;  // e, squared 16-bit steps

}  // namespace

double LogSpectralDistanceDb(std::span<const double> power, std::span<const double> reference) {
    double sum = 0.0;
    for (size_t k = 0; k < power.size(); ++k) {
        const double ratio = (power[k] + kFloorPower) / (reference[k] + kFloorPower);
        const double distance = 10.0 * std::log10(ratio);
        sum += distance * distance;
    }
    return std::sqrt(sum / static_cast<double>(power.size()));
}

double LogSpectralDistance::FrameDb(std::span<const int16_t> frame,
                                    std::span<const int16_t> reference) {
    m_spectrum.Power(frame, m_power);
    m_spectrum.Power(reference, m_referencePower);
    return LogSpectralDistanceDb(m_power, m_referencePower);
}

void LogSpectralDistance::Add(std::span<const int16_t> frame, std::span<const int16_t> reference,
                              bool concealed) {
    const double referencePower = MeanPower(reference);
    m_range.Add(referencePower);
    if (concealed && m_range.IsSpeech(referencePower)) {
        m_measured.push_back({FrameDb(frame, reference), referencePower});
    }
}

std::optional<double> LogSpectralDistance::MeanDb() const {
    double sum = 0.0;
    size_t count = 0;
    for (const Measured &one : m_measured) {
        if (!m_range.IsSpeech(one.referencePower)) continue;
        sum += one.distanceDb;
        ++count;
    }
    if (count == 0) return std::nullopt;
    return sum / static_cast<double>(count);
}

}  // namespace aiplc::measure
