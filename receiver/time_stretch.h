// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_RECEIVER_TIME_STRETCH_H
#define AIPLC_RECEIVER_TIME_STRETCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace aiplc::receiver {

// Makes 20 ms frames longer or shorter by a pitch period, where that is not heard:
// waveform-similarity overlap-add (Verhelst and Roelands 1993) inside the frame, whose first and
// last sample stay. Only frames are changed that are quiet, or whose neighbouring periods are
// alike.
class TimeStretch {
  public:
    // Takes all its memory here. sampleRate: Hz.
    explicit TimeStretch(uint32_t sampleRate);

    enum class Change { none, shorten, lengthen };

    // Returns the frame, changed if that can be done, valid until the next call. most: by at most
    // so many samples.
    std::span<const int16_t> Process(std::span<const int16_t> frame, Change wanted, size_t most);

  private:
    struct Period {
        size_t start = 0;   // of two neighbouring periods
        size_t length = 0;  // of each
    };

    void FollowNoise(std::span<const int16_t> frame);
    [[nodiscard]] std::optional<Period> FindPeriod(std::span<const int16_t> frame,
                                                   size_t most) const;
    void Append(std::span<const int16_t> samples);
    void AppendFade(std::span<const int16_t> from, std::span<const int16_t> to);

    size_t m_shortest;  // period, samples
    size_t m_longest;
    double m_level = 0;  // rms of the frame
    double m_noise;      // rms of the pauses
    std::vector<int16_t> m_changed;
};

}  // namespace aiplc::receiver

#endif
