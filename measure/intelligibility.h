// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_MEASURE_INTELLIGIBILITY_H
#define AIPLC_MEASURE_INTELLIGIBILITY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace aiplc::measure {

// Extended short-time objective intelligibility, ESTOI: Jensen & Taal, "An algorithm for predicting
// the intelligibility of speech masked by modulated noise maskers", IEEE/ACM Trans. ASLP 24(11),
// 2016. Third-octave magnitudes at 10 kHz (frames of 256 samples, hop 128, 15 bands from 150 Hz) in
// segments of 30 frames (384 ms), normalised over time in each band and then over bands in each
// frame; a segment's value is the correlation with the reference's, a call's the mean over its
// segments. Frames in which the reference is more than 40 dB below its loudest are left out.
class Intelligibility {
  public:
    struct Segment {
        double seconds;      // where it begins in the call
        double end;          // and where it ends: later than 384 ms where pauses were left out
        double correlation;  // -1..1, 1 = as the reference
    };

    // sampleRate in Hz.
    Intelligibility(std::span<const int16_t> reference, int sampleRate);

    // The segments of a signal aligned with the reference and as long; none when the reference has
    // less than 384 ms of speech.
    [[nodiscard]] std::vector<Segment> Segments(std::span<const int16_t> signal) const;

  private:
    static constexpr size_t kBands = 15;
    using Frame = std::array<double, kBands>;

    // Third-octave magnitudes of the frames in m_kept.
    [[nodiscard]] std::vector<Frame> Magnitudes(const std::vector<float> &at10K) const;

    int m_sampleRate;
    std::vector<size_t> m_kept;  // frames that are speech
    std::vector<Frame> m_reference;
};

}  // namespace aiplc::measure

#endif
