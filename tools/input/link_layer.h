// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_LINK_LAYER_H
#define AIPLC_TOOLS_LINK_LAYER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace aiplc::tools {

// One end of a UDP flow.
struct Endpoint {
    std::array<uint8_t, 16> address{};
    size_t addressBytes = 0;  // 4: IPv4, 16: IPv6, 0: not known
    uint16_t port = 0;
};

// "10.0.0.1:5004", "[fe80::1]:5004", or "?".
std::string EndpointText(const Endpoint &endpoint);

// The contents of a captured UDP datagram.
struct UdpPayload {
    std::span<const uint8_t> bytes;  // points into the frame
    bool cut = false;                // the capture holds less than was sent
    Endpoint from;
    Endpoint to;
};

// Whether frames of this libpcap link type (DLT_...) can be read: Ethernet with or without VLAN
// tags, raw IP, Linux cooked v1 and v2, BSD loopback.
bool IsKnownLinkType(int linkType);

// The UDP payload of a captured frame over IPv4 or IPv6; nothing when it is anything else, a
// fragment or malformed.
std::optional<UdpPayload> FindUdpPayload(int linkType, std::span<const uint8_t> frame);

}  // namespace aiplc::tools

#endif
