// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_RTP_PACKET_H
#define AIPLC_HOST_RTP_PACKET_H

#include <cstdint>
#include <vector>

namespace aiplc::host {

// An Opus packet that was sent before, repeated in a later one (RFC 2198).
struct RedundantCopy {
    uint16_t timestampOffset = 0;  // by which its timestamp lies before the later packet's
    std::vector<uint8_t> payload;
};

// One Opus packet as it travels in RTP (RFC 7587).
struct RtpPacket {
    uint16_t sequenceNumber = 0;          // consecutive over sent packets
    uint32_t timestamp = 0;               // 48 kHz clock, whatever the audio's own rate
    std::vector<uint8_t> payload;         // one Opus packet
    std::vector<RedundantCopy> copies{};  // of packets before it, in redundant audio
};

}  // namespace aiplc::host

#endif
