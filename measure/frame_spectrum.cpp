// SPDX-License-Identifier: BSD-2-Clause

#include "measure/frame_spectrum.h"

#include <kissfft/kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>

namespace aiplc::measure {

void FrameSpectrum::FreeFft::operator()(kiss_fftr_state *state) const {
    kiss_fftr_free(state);
}

FrameSpectrum::FrameSpectrum(int sampleRate)
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

void FrameSpectrum::Power(std::span<const int16_t> frame, std::vector<double> &power) {
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

}  // namespace aiplc::measure
