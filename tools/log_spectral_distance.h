// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_LOG_SPECTRAL_DISTANCE_H
#define AIPLC_TOOLS_LOG_SPECTRAL_DISTANCE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

struct kiss_fftr_state;

namespace aiplc::tools {

// How far the spectrum of concealed frames lies from that of the loss-free decode, in dB: the rms
// log-spectral measure of Gray & Markel, "Distance measures for speech processing", IEEE Trans.
// ASSP 24(5), 1976.
//
// A frame is 20 ms, Hann-windowed and zero-padded to 32 ms (512 points at 16 kHz, 1536 at 48 kHz).
// Its distance is sqrt(mean over bins of (10 log10((P + e) / (Pref + e)))^2). P is scaled so that
// white noise of variance v has P = v in every bin; e is one squared 16-bit step (-90 dBFS), 11 dB
// above the rounding noise of 16-bit samples, so that bins nobody hears have no say.
//
// The call's distance is the mean over its concealed frames in which the reference is speech: a
// power no more than 40 dB below its loudest frame's, the range used by Taal et al., "An algorithm
// for intelligibility prediction of time-frequency weighted noisy speech", IEEE Trans. ASLP 19(7),
// 2011.
class LogSpectralDistance {
  public:
    // sampleRate: 16000 or 48000 Hz.
    explicit LogSpectralDistance(int sampleRate);

    // Takes the next frame of both signals, 20 ms each. concealed: whether it counts.
    void Add(std::span<const int16_t> frame, std::span<const int16_t> reference, bool concealed);

    // The mean in dB; nothing when no concealed frame met speech.
    [[nodiscard]] std::optional<double> MeanDb() const;

    // Distance of one pair of frames in dB.
    double FrameDb(std::span<const int16_t> frame, std::span<const int16_t> reference);

  private:
    struct FreeFft {
        void operator()(kiss_fftr_state *state) const;
    };
    struct Measured {
        double distanceDb;
        double referencePower;
    };

    void PowerSpectrum(std::span<const int16_t> frame, std::vector<double> &power);

    size_t m_fftSize;
    std::unique_ptr<kiss_fftr_state, FreeFft> m_fft;
    std::vector<float> m_window;
    double m_windowPower = 0.0;
    std::vector<float> m_time;
    std::vector<double> m_power;
    std::vector<double> m_referencePower;
    std::vector<Measured> m_measured;
    double m_loudestPower = 0.0;
};

}  // namespace aiplc::tools

#endif
