// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_MEASURE_SPEECH_RANGE_H
#define AIPLC_MEASURE_SPEECH_RANGE_H

#include <cstdint>
#include <span>

namespace aiplc::measure {

// Mean square of 16-bit samples, in squared steps; 0 of nothing.
double MeanPower(std::span<const int16_t> samples);

// Which stretches of a signal are speech: those with a power no more than 40 dB below the loudest
// one's (the range of Taal et al., "An algorithm for intelligibility prediction of time-frequency
// weighted noisy speech", IEEE Trans. ASLP 19(7), 2011) and of at least 10 squared steps, -80 dBFS.
class SpeechRange {
  public:
    // Takes the power of the next stretch, in squared steps.
    void Add(double power) { m_loudest = power > m_loudest ? power : m_loudest; }
    // Whether a stretch of this power is speech; right once all have been added.
    [[nodiscard]] bool IsSpeech(double power) const;

  private:
    double m_loudest = 0.0;
};

}  // namespace aiplc::measure

#endif
