// SPDX-License-Identifier: BSD-2-Clause

#include "host/redundant_audio.h"

#include <algorithm>
#include <utility>

namespace aiplc::host {
namespace {

constexpr size_t kCopyHeaderBytes = 4;
constexpr uint8_t kMoreBlocks = 0x80;

}  // namespace

std::optional<RedundantAudio> ParseRedundantAudio(std::span<const uint8_t> payload, int opusType,
                                                  int redType) {
    struct Block {
        int payloadType;
        uint16_t timestampOffset;
        size_t length;
    };
    std::vector<Block> blocks;
    size_t at = 0;
    size_t copied = 0;
    for (; at < payload.size() && (payload[at] & kMoreBlocks) != 0; at += kCopyHeaderBytes) {
        if (payload.size() - at < kCopyHeaderBytes) return std::nullopt;
        const size_t length = (payload[at + 2] & 3U) << 8 | payload[at + 3];
        const auto offset = static_cast<uint16_t>(payload[at + 1] << 6 | payload[at + 2] >> 2);
        blocks.push_back({payload[at] & 0x7F, offset, length});
        copied += length;
    }
    if (at >= payload.size()) return std::nullopt;
    RedundantAudio audio;
    audio.payloadType = payload[at++];
    if (copied > payload.size() - at) return std::nullopt;
    if (audio.payloadType == redType || (opusType >= 0 && audio.payloadType != opusType))
        return std::nullopt;
    for (const Block &block : blocks) {
        if (block.payloadType == redType) return std::nullopt;
        if (block.payloadType == audio.payloadType && block.length > 0)
            audio.copies.push_back({block.timestampOffset, payload.subspan(at, block.length)});
        at += block.length;
    }
    audio.primary = payload.subspan(at);
    return audio;
}

void TakeBlocks(const RedundantAudio &audio, RtpPacket &packet) {
    packet.payload.assign(audio.primary.begin(), audio.primary.end());
    packet.copies.clear();
    for (const RedundantAudio::Copy &copy : audio.copies)
        packet.copies.push_back({copy.timestampOffset, {copy.payload.begin(), copy.payload.end()}});
}

std::vector<uint8_t> WriteRedundantAudio(const RtpPacket &packet, uint8_t opusType) {
    std::vector<uint8_t> bytes;
    for (const RedundantCopy &copy : packet.copies) {
        const size_t length = copy.payload.size();
        bytes.push_back(kMoreBlocks | opusType);
        bytes.push_back(static_cast<uint8_t>(copy.timestampOffset >> 6));
        bytes.push_back(static_cast<uint8_t>(size_t{copy.timestampOffset} << 2 | length >> 8));
        bytes.push_back(static_cast<uint8_t>(length));
    }
    bytes.push_back(opusType);
    for (const RedundantCopy &copy : packet.copies)
        bytes.insert(bytes.end(), copy.payload.begin(), copy.payload.end());
    bytes.insert(bytes.end(), packet.payload.begin(), packet.payload.end());
    return bytes;
}

std::vector<BufferedPacket> PlaceCopies(const RtpPacket &packet, const StreamClock::Place &place) {
    std::vector<BufferedPacket> placed;
    for (const RedundantCopy &copy : packet.copies) {
        const std::optional<OpusPacketInfo> info = ParseOpusPacket(copy.payload);
        if (!info) continue;
        BufferedPacket buffered;
        buffered.start = OnGrid(place.start - copy.timestampOffset);
        buffered.sequence = BufferedPacket::kUnknownSequence;
        buffered.info = *info;
        buffered.payload = copy.payload;
        buffered.isCopy = true;
        placed.push_back(std::move(buffered));
    }
    std::ranges::stable_sort(placed, std::ranges::greater{}, &BufferedPacket::start);
    StreamClock::Place behind = place;
    for (BufferedPacket &copy : placed) {
        if (copy.End() != behind.start) break;
        copy.sequence = behind.sequence - 1;
        behind = {copy.start, copy.sequence};
    }
    return placed;
}

}  // namespace aiplc::host
