// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_REDUNDANT_AUDIO_H
#define AIPLC_HOST_REDUNDANT_AUDIO_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/packet_buffer.h"
#include "host/rtp_packet.h"
#include "host/stream_clock.h"

namespace aiplc::host {

// The largest values that the header of a copy can hold (RFC 2198, section 3).
inline constexpr size_t kMaxCopyBytes = 1023;
inline constexpr uint32_t kMaxCopyOffset = 16383;  // of its timestamp, backwards

// The payload of an RTP packet of redundant audio (RFC 2198); points into it.
struct RedundantAudio {
    struct Copy {
        uint16_t timestampOffset = 0;
        std::span<const uint8_t> payload;
    };
    int payloadType = 0;               // of the packet's own audio
    std::span<const uint8_t> primary;  // that audio; may be empty
    std::vector<Copy> copies;          // not empty ones, of the same payload type
};

// opusType: the payload type that the packet's own audio must have, -1: any. redType: that of the
// packet itself. Copies of another payload type, which are no Opus, are left out. Nothing when the
// blocks do not add up, the packet's own audio is of another type, or a block is redundant audio
// again.
std::optional<RedundantAudio> ParseRedundantAudio(std::span<const uint8_t> payload, int opusType,
                                                  int redType);

// Takes the blocks over into a packet, in place of its payload and copies.
void TakeBlocks(const RedundantAudio &audio, RtpPacket &packet);

// The payload of the RTP packet that carries this packet and its copies, of which each keeps to the
// limits above.
std::vector<uint8_t> WriteRedundantAudio(const RtpPacket &packet, uint8_t opusType);

// A packet's copies as packets of their own on the call's timeline, from the newest to the oldest;
// what is no Opus is left out. A copy has no sequence number: it is told from the packet's where
// there is no room for others in between. place: the packet's.
std::vector<BufferedPacket> PlaceCopies(const RtpPacket &packet, const StreamClock::Place &place);

}  // namespace aiplc::host

#endif
