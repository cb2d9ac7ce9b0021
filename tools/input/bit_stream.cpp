// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/bit_stream.h"

#include <array>
#include <string>
#include <vector>

#include "host/opus_packet.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

constexpr size_t kHeaderBytes = 8;
constexpr uint32_t kFrame20Ms = 960;

uint32_t BigEndian32(const uint8_t *bytes) {
    return (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) | (uint32_t{bytes[2]} << 8) |
           uint32_t{bytes[3]};
}

std::string Where(size_t packet, uint64_t offset) {
    return "packet " + std::to_string(packet) + " at byte " + std::to_string(offset);
}

}  // namespace

bool LooksLikeBitStream(std::span<const uint8_t> head, uint64_t fileSize) {
    if (head.size() < kHeaderBytes) return false;
    const uint32_t length = BigEndian32(head.data());
    if (length > host::kMaxOpusPacketBytes) return false;
    if (length == 0) {  // a lost packet; one that was received has to follow
        return LooksLikeBitStream(head.subspan(kHeaderBytes), fileSize - kHeaderBytes);
    }
    const uint64_t end = kHeaderBytes + uint64_t{length};
    if (end > fileSize) return head.size() > kHeaderBytes;
    if (end > head.size()) return true;
    return OpusPacketSamples(head.subspan(kHeaderBytes, length)) > 0;
}

OpusCall ReadBitStream(InputFile &input) {
    OpusCall call;
    std::vector<uint8_t> payload;
    uint32_t samples = kFrame20Ms;
    uint64_t offset = 0;
    input.Rewind();
    for (;;) {
        std::array<uint8_t, kHeaderBytes> header{};
        const size_t got = input.Read(header);
        if (got == 0) break;
        const std::string where = Where(call.packets.size() + 1, offset);
        if (got < kHeaderBytes) {
            throw Failure(input.Name(),
                          "truncated in the header of " + where + "; give the whole bit stream");
        }
        const uint32_t length = BigEndian32(header.data());
        if (length > host::kMaxOpusPacketBytes) {
            throw Failure(input.Name(), where + " claims " + std::to_string(length) +
                                            " bytes; an Opus packet has at most " +
                                            std::to_string(host::kMaxOpusPacketBytes));
        }
        payload.resize(length);
        if (input.Read(payload) < length) {
            throw Failure(input.Name(), "truncated in " + where + "; give the whole bit stream");
        }
        if (length > 0) {
            samples = OpusPacketSamples(payload);
            if (samples == 0) {
                throw Failure(input.Name(), where +
                                                " is no Opus packet; give a bit stream as "
                                                "opus_demo -e writes it");
            }
        }
        AppendPacket(call, payload, samples, input.Name());
        offset += kHeaderBytes + length;
    }
    call.samples = call.span;
    return call;
}

}  // namespace aiplc::tools
