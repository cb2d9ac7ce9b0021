// SPDX-License-Identifier: BSD-2-Clause

#include "host/rtp_view.h"

namespace aiplc::host {
namespace {

uint16_t Word(std::span<const uint8_t> bytes, size_t at) {
    return static_cast<uint16_t>((bytes[at] << 8) | bytes[at + 1]);
}

uint32_t DoubleWord(std::span<const uint8_t> bytes, size_t at) {
    return (uint32_t{Word(bytes, at)} << 16) | Word(bytes, at + 2);
}

}  // namespace

std::optional<RtpView> ParseRtp(std::span<const uint8_t> datagram) {
    if (datagram.size() < 12 || (datagram[0] >> 6) != 2) return std::nullopt;
    RtpView packet;
    packet.payloadType = datagram[1] & 0x7F;
    if (packet.payloadType >= 64 && packet.payloadType <= 95) return std::nullopt;  // RFC 5761, 4
    packet.sequence = Word(datagram, 2);
    packet.timestamp = DoubleWord(datagram, 4);
    packet.ssrc = DoubleWord(datagram, 8);
    size_t start = 12 + size_t{4} * (datagram[0] & 0x0F);
    if ((datagram[0] & 0x10) != 0) {
        if (start + 4 > datagram.size()) return std::nullopt;
        start += 4 + size_t{4} * Word(datagram, start + 2);
    }
    size_t end = datagram.size();
    if ((datagram[0] & 0x20) != 0) {
        const size_t padding = datagram.back();
        if (padding == 0 || padding > end) return std::nullopt;
        end -= padding;
    }
    if (start > end) return std::nullopt;
    packet.payload = datagram.subspan(start, end - start);
    return packet;
}

void WriteRtp(const RtpView &packet, std::vector<uint8_t> &datagram) {
    datagram.assign({0x80, packet.payloadType});
    for (const int shift : {8, 0})
        datagram.push_back(static_cast<uint8_t>(packet.sequence >> shift));
    for (const uint32_t word : {packet.timestamp, packet.ssrc}) {
        for (const int shift : {24, 16, 8, 0})
            datagram.push_back(static_cast<uint8_t>(word >> shift));
    }
    datagram.insert(datagram.end(), packet.payload.begin(), packet.payload.end());
}

}  // namespace aiplc::host
