// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/link_layer.h"

#include <arpa/inet.h>
#include <pcap/pcap.h>

#include <algorithm>

namespace aiplc::tools {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint16_t kEtherIpv4 = 0x0800;
constexpr uint16_t kEtherIpv6 = 0x86DD;
constexpr uint8_t kProtocolUdp = 17;

uint16_t Word(Bytes bytes, size_t at) {
    return static_cast<uint16_t>((bytes[at] << 8) | bytes[at + 1]);
}

bool IsVlanTag(uint16_t type) {
    return type == 0x8100 || type == 0x88A8 || type == 0x9100;
}

// The network packet in a link-layer frame; empty when it is neither IPv4 nor IPv6.
Bytes Unwrap(Bytes frame, size_t typeAt, size_t headerBytes) {
    if (frame.size() < headerBytes) return {};
    uint16_t type = Word(frame, typeAt);
    while (IsVlanTag(type)) {
        if (frame.size() < headerBytes + 4) return {};
        type = Word(frame, headerBytes + 2);
        headerBytes += 4;
    }
    return type == kEtherIpv4 || type == kEtherIpv6 ? frame.subspan(headerBytes) : Bytes();
}

// Nothing for a link type that is not known; empty when the frame has no network packet.
std::optional<Bytes> NetworkPacket(int linkType, Bytes frame) {
    switch (linkType) {
        case DLT_EN10MB:
            return Unwrap(frame, 12, 14);
        case DLT_LINUX_SLL:
            return Unwrap(frame, 14, 16);
        case DLT_LINUX_SLL2:
            return Unwrap(frame, 0, 20);
        case DLT_NULL:
        case DLT_LOOP:
            // The address family differs between systems; the IP version behind it does not.
            return frame.size() > 4 ? frame.subspan(4) : Bytes();
        case DLT_RAW:
        case DLT_IPV4:
        case DLT_IPV6:
            return frame;
        default:
            return std::nullopt;
    }
}

Endpoint MakeEndpoint(Bytes address, uint16_t port) {
    Endpoint endpoint;
    std::ranges::copy(address, endpoint.address.begin());
    endpoint.addressBytes = address.size();
    endpoint.port = port;
    return endpoint;
}

// addresses: the source's, then the destination's.
std::optional<UdpPayload> Udp(Bytes datagram, bool cut, Bytes addresses) {
    if (datagram.size() < 8) return std::nullopt;
    const size_t length = Word(datagram, 4);
    if (length < 8) return std::nullopt;
    UdpPayload payload;
    const size_t addressBytes = addresses.size() / 2;
    payload.from = MakeEndpoint(addresses.first(addressBytes), Word(datagram, 0));
    payload.to = MakeEndpoint(addresses.subspan(addressBytes), Word(datagram, 2));
    payload.cut = cut || length > datagram.size();
    payload.bytes = datagram.first(std::min(length, datagram.size())).subspan(8);
    return payload;
}

// RFC 791, section 3.1.
std::optional<UdpPayload> Ipv4(Bytes packet) {
    if (packet.size() < 20) return std::nullopt;
    const size_t headerBytes = size_t{4} * (packet[0] & 0x0F);
    size_t length = Word(packet, 2);
    if (length == 0) length = packet.size();  // segmentation off-load leaves it empty
    const bool fragment = (Word(packet, 6) & 0x3FFF) != 0;
    if (headerBytes < 20 || length < headerBytes || packet.size() < headerBytes || fragment ||
        packet[9] != kProtocolUdp) {
        return std::nullopt;
    }
    const bool cut = length > packet.size();
    return Udp(packet.first(std::min(length, packet.size())).subspan(headerBytes), cut,
               packet.subspan(12, 8));
}

// RFC 8200, sections 3 and 4: extension headers say what follows and how long they are.
std::optional<UdpPayload> Ipv6(Bytes packet) {
    if (packet.size() < 40) return std::nullopt;
    const size_t claimed = size_t{40} + Word(packet, 4);
    const size_t length = claimed == 40 ? packet.size() : claimed;
    const bool cut = length > packet.size();
    uint8_t next = packet[6];
    Bytes rest = packet.first(std::min(length, packet.size())).subspan(40);
    while (next == 0 || next == 43 || next == 60) {  // hop-by-hop, routing, destination options
        if (rest.size() < 8) return std::nullopt;
        const size_t bytes = size_t{8} * (rest[1] + size_t{1});
        if (bytes > rest.size()) return std::nullopt;
        next = rest[0];
        rest = rest.subspan(bytes);
    }
    return next == kProtocolUdp ? Udp(rest, cut, packet.subspan(8, 32)) : std::nullopt;
}

}  // namespace

std::string EndpointText(const Endpoint &endpoint) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    const bool isIpv6 = endpoint.addressBytes == 16;
    if (endpoint.addressBytes == 0 ||
        inet_ntop(isIpv6 ? AF_INET6 : AF_INET, endpoint.address.data(), text.data(), text.size()) ==
            nullptr) {
        return "?";
    }
    const std::string address = text.data();
    return (isIpv6 ? "[" + address + "]" : address) + ":" + std::to_string(endpoint.port);
}

bool IsKnownLinkType(int linkType) {
    return NetworkPacket(linkType, {}).has_value();
}

std::optional<UdpPayload> FindUdpPayload(int linkType, std::span<const uint8_t> frame) {
    const std::optional<Bytes> packet = NetworkPacket(linkType, frame);
    if (!packet || packet->empty()) return std::nullopt;
    const int version = packet->front() >> 4;
    if (version == 4) return Ipv4(*packet);
    if (version == 6) return Ipv6(*packet);
    return std::nullopt;
}

}  // namespace aiplc::tools
