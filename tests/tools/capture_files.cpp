// SPDX-License-Identifier: BSD-2-Clause

#include "tests/tools/capture_files.h"

namespace aiplc::tools {

Bytes Rtp(uint32_t ssrc, uint8_t type, uint16_t sequence, uint32_t time, const Bytes &payload) {
    return Join({Big(0x8000U | type, 2), Big(sequence, 2), Big(time, 4), Big(ssrc, 4), payload});
}

Bytes Udp(const Bytes &payload) {
    return Join({Big(5004, 2), Big(5006, 2), Big(8 + payload.size(), 2), Big(0, 2), payload});
}

Bytes Ipv4(const Bytes &payload, uint16_t fragment, uint8_t protocol) {
    return Join({Big(0x4500, 2), Big(28 + payload.size(), 2), Big(fragment, 4),
                 Big(0x4000U | protocol, 2), Bytes(10, 10), Udp(payload)});
}

Bytes Ipv6(const Bytes &payload) {
    return Join({Big(0x60000000, 4), Big(16 + payload.size(), 2), Big(64, 2), Bytes(32, 0xFE),
                 Big(0x1100010400000000, 8), Udp(payload)});
}

Bytes Ethernet(const Bytes &typeAndPacket) {
    return Join({Bytes(12, 2), typeAndPacket});
}

Bytes CaptureHeader(uint32_t linkType) {
    return Join({Little(0xA1B2C3D4, 4), Little(0x00040002, 4), Little(0, 8), Little(65535, 4),
                 Little(linkType, 4)});
}

Bytes Frame(uint64_t timeUs, const Bytes &rtp, size_t missing) {
    Bytes frame = Ethernet(Join({Big(0x0800, 2), Ipv4(rtp)}));
    const size_t length = frame.size();
    frame.resize(length - missing);
    return Join({Little(1700000000 + timeUs / 1000000, 4), Little(timeUs % 1000000, 4),
                 Little(frame.size(), 4), Little(length, 4), frame});
}

}  // namespace aiplc::tools
