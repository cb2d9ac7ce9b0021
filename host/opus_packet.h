// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_OPUS_PACKET_H
#define AIPLC_HOST_OPUS_PACKET_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace aiplc::host {

// The longest packet RFC 6716 allows: 120 ms as 48 frames of 1275 bytes with two-byte lengths.
inline constexpr size_t kMaxOpusPacketBytes = 2 + 48 * (2 + 1275);

// Facts from a packet's header, without decoding it. Times are in 48 kHz samples.
struct OpusPacketInfo {
    int32_t duration = 0;       // of the packet, 120..5760
    int32_t frameDuration = 0;  // of one of its frames
    uint32_t bandwidth = 0;     // OPUS_BANDWIDTH_*
    bool celtOnly = false;
    bool redundancy = false;  // carries in-band FEC for the frame before its first one
    bool pause = false;       // at most 2 bytes: the sender stops sending (DTX)
    bool quiet = false;       // its last SILK frame has no speech, as the encoder judged
};

// Nothing when the bytes are no well-formed Opus packet (RFC 6716 3.4).
std::optional<OpusPacketInfo> ParseOpusPacket(std::span<const uint8_t> packet);

}  // namespace aiplc::host

#endif
