// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_OPUS_CALL_H
#define AIPLC_TOOLS_OPUS_CALL_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace aiplc::tools {

constexpr int kOpusClock = 48000;  // Hz: RTP timestamps, Ogg positions, whatever the audio's rate

// The longest call: what a 48 kHz WAV file of 4 GiB holds.
constexpr int64_t kMaxCallSeconds = int64_t{12} * 3600;

struct CallPacket {
    std::vector<uint8_t> payload;  // Opus; empty: already lost when the call was recorded
    uint16_t sequence = 0;
    uint32_t timestamp = 0;  // 48 kHz clock, first sample
    int64_t arrivalUs = 0;   // since the first packet's arrival
    // The RTP payload where that is redundant audio (RFC 2198); payload is the newest of it, or
    // empty where the blocks do not add up.
    std::vector<uint8_t> redundant{};

    [[nodiscard]] bool IsMissing() const { return payload.empty() && redundant.empty(); }
};

// The packets of a call, in the order in which they reach the receiver.
struct OpusCall {
    std::vector<CallPacket> packets;
    // All in 48 kHz samples: the packets last span; behind a delay of delaySamples (the encoder's
    // look-ahead, an Ogg file's pre-skip) samples of them are the audio that counts.
    int64_t span = 0;
    int64_t delaySamples = 0;
    int64_t samples = 0;
    int outputGainQ8 = 0;          // dB / 256, asked for by an Ogg header
    bool hasArrivalTimes = false;  // captured: arrivalUs is what the network did
    // Payload types of Opus and of redundant audio; -1 without the latter.
    int opusType = -1;
    int redType = -1;
};

// Duration in 48 kHz samples; 0 when this is no Opus packet (RFC 6716, section 3).
uint32_t OpusPacketSamples(std::span<const uint8_t> payload);

// Puts one more packet behind the others, sent without pause, and lengthens span by it. samples:
// its duration. Throws Failure naming file when the call becomes too long.
void AppendPacket(OpusCall &call, std::span<const uint8_t> payload, uint32_t samples,
                  const std::string &file);

// Bit/s of the RTP payloads as they were sent, over the call's span.
double PayloadBitrate(const OpusCall &call);

// Widest audio bandwidth (OPUS_BANDWIDTH_...) of any packet; 0 when there is none.
uint32_t WidestBandwidth(const OpusCall &call);

}  // namespace aiplc::tools

#endif
