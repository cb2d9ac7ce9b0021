// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRAINING_LOSS_FREE_DECODE_H
#define AIPLC_TRAINING_LOSS_FREE_DECODE_H

#include <cstdint>
#include <span>
#include <vector>

#include "host/rtp_packet.h"

namespace aiplc::training {

// A call's audio as the worker would see it: 20 ms frames of 320 samples at 16 kHz.
class LowBand {
  public:
    explicit LowBand(std::vector<int16_t> samples) : m_samples(std::move(samples)) {}

    int64_t Frames() const;
    // Writes one frame; silence outside the call.
    void CopyFrame(int64_t frame, int16_t *to) const;

  private:
    std::vector<int16_t> m_samples;
};

// Decodes all packets as the reference host does when none is lost. At 48 kHz the result is the low
// band of the library's filter bank, run through the whole call and rounded as the library does.
// complexity: the decoder's, 0..10, as in host::ReceiverOptions.
LowBand DecodeLossFree(std::span<const host::RtpPacket> packets, uint32_t sampleRate,
                       int complexity);

}  // namespace aiplc::training

#endif
