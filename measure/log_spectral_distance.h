// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_MEASURE_LOG_SPECTRAL_DISTANCE_H
#define AIPLC_MEASURE_LOG_SPECTRAL_DISTANCE_H

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "measure/frame_spectrum.h"
#include "measure/speech_range.h"

namespace aiplc::measure {

// How far the spectrum of concealed frames lies from that of the loss-free decode, in dB: the rms
// log-spectral measure of Gray & Markel, "Distance measures for speech processing", IEEE Trans.
// ASSP 24(5), 1976.
//
// A frame's distance is sqrt(mean over bins of (10 log10((P + e) / (Pref + e)))^2) with the power
// spectra of FrameSpectrum; e is one squared 16-bit step (-90 dBFS), 11 dB above the rounding noise
// of 16-bit samples, so that bins nobody hears have no say.
double LogSpectralDistanceDb(std::span<const double> power, std::span<const double> reference);

// The distance of a call: the mean over its concealed frames in which the reference is speech.
class LogSpectralDistance {
  public:
    // sampleRate: 16000 or 48000 Hz.
    explicit LogSpectralDistance(int sampleRate) : m_spectrum(sampleRate) {}

    // Takes the next frame of both signals, 20 ms each. concealed: whether it counts.
    void Add(std::span<const int16_t> frame, std::span<const int16_t> reference, bool concealed);

    // The mean in dB; nothing when no concealed frame met speech.
    [[nodiscard]] std::optional<double> MeanDb() const;

    // Distance of one pair of frames in dB.
    double FrameDb(std::span<const int16_t> frame, std::span<const int16_t> reference);

  private:
    struct Measured {
        double distanceDb;
        double referencePower;
    };

    FrameSpectrum m_spectrum;
    std::vector<double> m_power;
    std::vector<double> m_referencePower;
    std::vector<Measured> m_measured;
    SpeechRange m_range;
};

}  // namespace aiplc::measure

#endif
