// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/opus_call.h"

#include <algorithm>

#include "host/opus_packet.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {

uint32_t OpusPacketSamples(std::span<const uint8_t> payload) {
    const auto info = host::ParseOpusPacket(payload);
    return info ? static_cast<uint32_t>(info->duration) : 0;
}

void AppendPacket(OpusCall &call, std::span<const uint8_t> payload, uint32_t samples,
                  const std::string &file) {
    CallPacket packet;
    packet.payload.assign(payload.begin(), payload.end());
    packet.sequence = static_cast<uint16_t>(call.packets.size());
    packet.timestamp = static_cast<uint32_t>(call.span);
    packet.arrivalUs = call.span * 1000 / (kOpusClock / 1000);
    call.packets.push_back(std::move(packet));
    call.span += samples;
    if (call.span > kMaxCallSeconds * kOpusClock) {
        throw Failure(file, "longer than 12 hours; give a shorter call");
    }
}

double PayloadBitrate(const OpusCall &call) {
    size_t bytes = 0;
    for (const CallPacket &packet : call.packets)
        bytes += packet.redundant.empty() ? packet.payload.size() : packet.redundant.size();
    return 8.0 * static_cast<double>(bytes) * kOpusClock / static_cast<double>(call.span);
}

uint32_t WidestBandwidth(const OpusCall &call) {
    uint32_t widest = 0;
    for (const CallPacket &packet : call.packets) {
        const auto info = host::ParseOpusPacket(packet.payload);
        if (info) widest = std::max(widest, info->bandwidth);
    }
    return widest;
}

}  // namespace aiplc::tools
