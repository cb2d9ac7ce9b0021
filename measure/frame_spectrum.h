// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_MEASURE_FRAME_SPECTRUM_H
#define AIPLC_MEASURE_FRAME_SPECTRUM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct kiss_fftr_state;

namespace aiplc::measure {

// Power spectra of 20 ms frames: Hann window, zero-padded to 32 ms, so that bins lie 31.25 Hz apart
// at either rate. Power is in squared 16-bit steps and scaled so that white noise of variance v has
// v in every bin.
class FrameSpectrum {
  public:
    // sampleRate: 16000 or 48000 Hz.
    explicit FrameSpectrum(int sampleRate);

    // Writes one value per bin from 0 Hz up: 257 at 16 kHz, 769 at 48 kHz.
    void Power(std::span<const int16_t> frame, std::vector<double> &power);

  private:
    struct FreeFft {
        void operator()(kiss_fftr_state *state) const;
    };

    size_t m_fftSize;
    std::unique_ptr<kiss_fftr_state, FreeFft> m_fft;
    std::vector<float> m_window;
    double m_windowPower = 0.0;
    std::vector<float> m_time;
};

}  // namespace aiplc::measure

#endif
