// SPDX-License-Identifier: BSD-2-Clause

#include "opus_call.h"

#include <opus/opus.h>

#include <algorithm>

#include "failure.h"

namespace aiplc::tools {

uint32_t OpusPacketSamples(std::span<const uint8_t> payload) {
    if (payload.empty() || payload.size() > kMaxOpusPacketBytes) return 0;
    unsigned char toc = 0;
    const unsigned char *frames[48];
    opus_int16 sizes[48];
    const auto length = static_cast<opus_int32>(payload.size());
    if (opus_packet_parse(payload.data(), length, &toc, frames, sizes, nullptr) < 0) return 0;
    const int samples = opus_packet_get_nb_samples(payload.data(), length, kOpusClock);
    return samples > 0 ? static_cast<uint32_t>(samples) : 0;
}

void AppendPacket(OpusCall &call, std::span<const uint8_t> payload, uint32_t samples,
                  const std::string &file) {
    CallPacket packet;
    packet.payload.assign(payload.begin(), payload.end());
    packet.sequence = static_cast<uint16_t>(call.packets.size());
    packet.timestamp = static_cast<uint32_t>(call.samples);
    packet.arrivalUs = call.samples * 1000 / (kOpusClock / 1000);
    call.packets.push_back(std::move(packet));
    call.samples += samples;
    if (call.samples > kMaxCallSeconds * kOpusClock) {
        throw Failure(file, "longer than 12 hours; give a shorter call");
    }
}

int WidestBandwidth(const OpusCall &call) {
    int widest = 0;
    for (const CallPacket &packet : call.packets) {
        if (packet.payload.empty()) continue;
        widest = std::max(widest, opus_packet_get_bandwidth(packet.payload.data()));
    }
    return widest;
}

}  // namespace aiplc::tools
