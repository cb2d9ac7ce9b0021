// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RTP_STREAMS_H
#define AIPLC_TOOLS_RTP_STREAMS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/input/link_layer.h"
#include "tools/input/rtp_recording.h"

namespace aiplc::tools {

// Which RTP stream of a capture is the call; what is not set is free.
struct StreamChoice {
    std::optional<uint32_t> ssrc;
    std::optional<int> payloadType;  // 0..127
};

// The packets of one SSRC and payload type.
struct RtpStream {
    uint32_t ssrc = 0;
    int payloadType = 0;
    Endpoint from;  // of its first packet, as all that follows here
    Endpoint to;
    int64_t firstNs = 0;
    int64_t lastNs = 0;
    uint64_t packets = 0;
    uint64_t probes = 0;  // of those, nothing but padding
    uint64_t cut = 0;     // of those, only the beginning was captured
    uint64_t opus = 0;    // of those that are neither, well-formed Opus packets
    // Packets that follow on the one before by their sequence number, and of those the ones whose
    // timestamp does too: by what the packet before lasts, or by more.
    uint64_t steps = 0;
    uint64_t opusSteps = 0;
    std::array<uint64_t, 16> firstNibbles{};  // of payloads: how many begin with each half byte

    [[nodiscard]] double Seconds() const { return static_cast<double>(lastNs - firstNs) * 1e-9; }
    // "--ssrc 0x0000000a --payload-type 111"
    [[nodiscard]] std::string Name() const;
    // Why this is no stream of Opus, as a clause; empty when it may be one.
    [[nodiscard]] std::string WhyNotOpus() const;
};

// All RTP streams of a recording, those with most packets first.
std::vector<RtpStream> SurveyStreams(RtpRecording &recording);

// The stream of Opus with the most packets that fits the choice; payload types below 35 belong to
// other codecs (RFC 3551) and count only when asked for. Throws Failure naming file, with a list of
// the streams, when there is none.
size_t ChooseStream(const std::vector<RtpStream> &streams, const StreamChoice &choice,
                    const std::string &file);

// A table with a line for each stream; chosen is marked with a star. It begins with a line break.
std::string StreamTable(const std::vector<RtpStream> &streams, std::optional<size_t> chosen);

}  // namespace aiplc::tools

#endif
