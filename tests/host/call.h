// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_HOST_CALL_H
#define AIPLC_TESTS_HOST_CALL_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/receiver.h"
#include "host/sender.h"

namespace aiplc::host {

// Voiced sound with a moving pitch, noise and pauses between syllables.
std::vector<int16_t> SpeechLike(uint32_t sampleRate, double seconds);

std::vector<RtpPacket> Encode(const SenderOptions &options, const std::vector<int16_t> &pcm);

// What a decoder makes of the packets, one after the other.
std::vector<int16_t> DecodeAll(const std::vector<RtpPacket> &packets, uint32_t sampleRate);

// A receiver's output. Start-up frames are left out, so that frame 0 comes first.
struct PlayedCall {
    std::vector<int16_t> pcm;
    std::vector<FrameSource> sources;
    std::vector<OutputFrame> frames;  // without samples
    Statistics statistics;

    // One letter a frame: decoded, late, fec, x = dtx, partial, interpolated, extrapolated, codec,
    // muted, o = lost.
    std::string Sources() const;
};

// The tick at which a packet arrives; nothing: lost. A packet sent at time t is due at tick t / 20
// ms and arrives in time when it is pushed before that tick.
using Arrival = std::function<std::optional<int64_t>(size_t index, int64_t due)>;

// Plays a call to its end. With stop, so many frames.
PlayedCall Play(const std::vector<RtpPacket> &packets, const ReceiverOptions &options,
                const Arrival &arrival, int64_t frames = 0);

Arrival InTime();
// Loses the packets with these indices.
Arrival Losing(std::vector<size_t> lost);

}  // namespace aiplc::host

#endif
