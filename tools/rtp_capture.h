// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RTP_CAPTURE_H
#define AIPLC_TOOLS_RTP_CAPTURE_H

#include <cstdint>
#include <optional>
#include <span>

#include "input_file.h"
#include "opus_call.h"

namespace aiplc::tools {

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

// Which RTP stream of a capture is the call; what is not set is free.
struct StreamChoice {
    std::optional<uint32_t> ssrc;
    std::optional<int> payloadType;  // 0..127
};

// The stream that was chosen.
struct CapturedStream {
    uint32_t ssrc = 0;
    int payloadType = 0;
    uint64_t probes = 0;        // packets of nothing but padding, left out
    uint64_t otherStreams = 0;  // RTP streams that were not chosen
};

struct CapturedCall {
    OpusCall call;
    CapturedStream stream;
};

// Reads the RTP stream with the most packets among those that fit the choice; payload types below
// 35 belong to other codecs (RFC 3551) and count only when asked for. Throws Failure.
CapturedCall ReadCapture(const InputFile &input, const StreamChoice &choice);

}  // namespace aiplc::tools

#endif
