// SPDX-License-Identifier: BSD-2-Clause

#include "log_spectral_distance.h"

#include <kissfft/kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>

namespace aiplc::tools {
namespace {

constexpr double kFloorPower = 1.0;            // e, squared 16-bit steps
constexpr double kActiveRange = 1e-4;          // 40 dB
constexpr double kQuietestSpeechPower = 10.0;  // squared steps (-80 dBFS): below it there is none

double MeanPower(std::span<const int16_t> frame) {
    double sum = 0.0;
    for (const int16_t sample : frame)
        sum += static_cast<double>(sample) * sample;
    return frame.empty() ? 0.0 : sum / static_cast<double>(frame.size());
}

}  // namespace

void LogSpectralDistance::FreeFft::operator()(kiss_fftr_state *state) const {
    kiss_fftr_free(state);
}

LogSpectralDistance::LogSpectralDistance(int sampleRate)
    : m_fftSize(sampleRate == 48000 ? 1536 : 512),
      m_fft(kiss_fftr_alloc(static_cast<int>(m_fftSize), 0, nullptr, nullptr)),
      m_window(static_cast<size_t>(sampleRate / 50)),
      m_time(m_fftSize, 0.0F) {
    if (!m_fft) throw std::bad_alloc();
    const auto length = static_cast<double>(m_window.size());
    for (size_t i = 0; i < m_window.size(); ++i) {
        const double phase = 2.0 * std::numbers::pi * static_cast<double>(i) / length;
        const double value = 0.5 - 0.5 * std::cos(phase);
        m_window[i] = static_cast<float>(value);
        m_windowPower += value * value;
    }
}

void LogSpectralDistance::PowerSpectrum(std::span<const int16_t> frame,
                                        std::vector<double> &power) {
    std::fill(m_time.begin(), m_time.end(), 0.0F);
    const size_t used = std::min(frame.size(), m_window.size());
    for (size_t i = 0; i < used; ++i)
        m_time[i] = m_window[i] * static_cast<float>(frame[i]);
    std::vector<kiss_fft_cpx> bins(m_fftSize / 2 + 1);
    kiss_fftr(m_fft.get(), m_time.data(), bins.data());
    power.resize(bins.size());
    for (size_t k = 0; k < bins.size(); ++k) {
        const auto re = static_cast<double>(bins[k].r);
        const auto im = static_cast<double>(bins[k].i);
        power[k] = (re * re + im * im) / m_windowPower;
    }
}

double LogSpectralDistance::FrameDb(std::span<const int16_t> frame,
                                    std::span<const int16_t> reference) {
    PowerSpectrum(frame, m_power);
    PowerSpectrum(reference, m_referencePower);
    double sum = 0.0;
    for (size_t k = 0; k < m_power.size(); ++k) {
        const double ratio = (m_power[k] + kFloorPower) / (m_referencePower[k] + kFloorPower);
        const double distance = 10.0 * std::log10(ratio);
        sum += distance * distance;
    }
    return std::sqrt(sum / static_cast<double>(m_power.size()));
}

void LogSpectralDistance::Add(std::span<const int16_t> frame, std::span<const int16_t> reference,
                              bool concealed) {
    const double referencePower = MeanPower(reference);
    m_loudestPower = std::max(m_loudestPower, referencePower);
    if (concealed && referencePower >= kQuietestSpeechPower) {
        m_measured.push_back({FrameDb(frame, reference), referencePower});
    }
}

std::optional<double> LogSpectralDistance::MeanDb() const {
    double sum = 0.0;
    size_t count = 0;
    for (const Measured &one : m_measured) {
        if (one.referencePower < m_loudestPower * kActiveRange) continue;
        sum += one.distanceDb;
        ++count;
    }
    if (count == 0) return std::nullopt;
    return sum / static_cast<double>(count);
}

}  // namespace aiplc::tools
