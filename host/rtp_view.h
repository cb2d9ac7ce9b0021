// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_RTP_VIEW_H
#define AIPLC_HOST_RTP_VIEW_H

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace aiplc::host {

// Header and payload of an RTP packet (RFC 3550, section 5.1).
struct RtpView {
    uint8_t payloadType = 0;
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
    std::span<const uint8_t> payload;  // without extension and padding; points into the datagram
};

// Nothing when the datagram is no RTP: wrong version, RTCP, lengths that do not add up.
std::optional<RtpView> ParseRtp(std::span<const uint8_t> datagram);

// Writes the packet with the shortest header, in place of what datagram held.
void WriteRtp(const RtpView &packet, std::vector<uint8_t> &datagram);

}  // namespace aiplc::host

#endif
