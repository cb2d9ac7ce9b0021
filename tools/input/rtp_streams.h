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
    std::optional<uint32_t> ssrc{};
    std::optional<int> payloadType{};  // 0..127
    // Of redundant audio (RFC 2198), in addition to streams whose packets tell that they are.
    std::optional<int> redPayloadType{};
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

    // Of the packets in opus' place, those that are redundant audio of Opus (RFC 2198), and of
    // those the ones with copies; redOpusType: the payload type of the Opus in it, -1 where there
    // is none.
    uint64_t red = 0;
    uint64_t redWithCopies = 0;
    int redOpusType = -1;
    bool namedRed = false;  // redundant audio because the user says so

    [[nodiscard]] double Seconds() const { return static_cast<double>(lastNs - firstNs) * 1e-9; }
    // "--ssrc 0x0000000a --payload-type 111"
    [[nodiscard]] std::string Name() const;
    // The packets carry more than one block each, or the user says so.
    [[nodiscard]] bool IsRedundantAudio() const;
    // Why this is no stream of Opus, as a clause; empty when it may be one.
    [[nodiscard]] std::string WhyNotOpus() const;
};

// All RTP streams of a recording, those with most packets first. redType: StreamChoice's.
std::vector<RtpStream> SurveyStreams(RtpRecording &recording, std::optional<int> redType);

// The stream of Opus with the most packets that fits the choice; payload types below 35 belong to
// other codecs (RFC 3551) and count only when asked for. Throws Failure naming file, with a list of
// the streams, when there is none.
size_t ChooseStream(const std::vector<RtpStream> &streams, const StreamChoice &choice,
                    const std::string &file);

// The other payload type of the same sender: plain Opus beside redundant audio of that type, or the
// other way round. Both are one stream, with sequence numbers in common.
std::optional<size_t> OtherHalf(const std::vector<RtpStream> &streams, size_t chosen);

// A table with a line for each stream; chosen is marked with a star. It begins with a line break.
std::string StreamTable(const std::vector<RtpStream> &streams, std::optional<size_t> chosen);

}  // namespace aiplc::tools

#endif
