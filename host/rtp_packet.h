// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_RTP_PACKET_H
#define AIPLC_HOST_RTP_PACKET_H

#include <cstdint>
#include <vector>

namespace aiplc::host {

// One Opus packet as it travels in RTP (RFC 7587).
struct RtpPacket {
    uint16_t sequenceNumber = 0;   // consecutive over sent packets
    uint32_t timestamp = 0;        // 48 kHz clock, whatever the audio's own rate
    std::vector<uint8_t> payload;  // one Opus packet
};

}  // namespace aiplc::host

#endif
