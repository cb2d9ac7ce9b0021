// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_LINK_LAYER_H
#define AIPLC_TOOLS_LINK_LAYER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace aiplc::tools {

// What a captured UDP datagram carries.
struct UdpPayload {
    std::span<const uint8_t> bytes;  // points into the frame
    bool cut = false;                // the capture holds less than was sent
};

// Whether frames of this libpcap link type (DLT_...) can be read: Ethernet with or without VLAN
// tags, raw IP, Linux cooked v1 and v2, BSD loopback.
bool IsKnownLinkType(int linkType);

// The UDP payload of a captured frame over IPv4 or IPv6; nothing when it is anything else, a
// fragment or malformed.
std::optional<UdpPayload> FindUdpPayload(int linkType, std::span<const uint8_t> frame);

}  // namespace aiplc::tools

#endif
