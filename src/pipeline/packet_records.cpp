// SPDX-License-Identifier: BSD-2-Clause

#include "src/pipeline/packet_records.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace aiplc::pipeline {
namespace {

constexpr char kUnit[] = "aiplc_process";
constexpr uint32_t kHeaderWords = 4;

static_assert(std::endian::native == std::endian::little, "packet records are little-endian");

struct RecordHeader {
    uint16_t lengthWords;
    uint16_t seqNumber;
    uint32_t bandwidth;
};
static_assert(sizeof(RecordHeader) == kHeaderWords * sizeof(uint16_t));

enum class Take { taken, failed, malformed };

// Checks that the record and the frame read from it lie within the words left.
bool IsReadable(const RecordHeader &header, uint32_t wordsLeft, uint32_t frameSamples) {
    if (header.lengthWords <= kHeaderWords || header.lengthWords > wordsLeft) {
        AudAiplcLog(kUnit, __LINE__,
                    "packet record dropped: lengthWords = %u, must be 5 to %u (words left)",
                    unsigned{header.lengthWords}, wordsLeft);
        return false;
    }
    if (kHeaderWords + frameSamples > wordsLeft) {
        AudAiplcLog(kUnit, __LINE__,
                    "packet record dropped: %u words left, a frame of %u samples needs %u",
                    wordsLeft, frameSamples, kHeaderWords + frameSamples);
        return false;
    }
    if (header.lengthWords < kHeaderWords + frameSamples) {
        AudAiplcLog(kUnit, __LINE__, "packet record short: lengthWords = %u, a frame needs %u",
                    unsigned{header.lengthWords}, kHeaderWords + frameSamples);
    }
    return true;
}

// Copies one record's frame into node and moves the cursor past the record.
Take TakeRecord(AiPlcHostStream &stream, uint32_t frameSamples, AiPlcPkt *node,
                uint32_t &samplesTaken) {
    RecordHeader header{};
    if (stream.pktCursor == nullptr || stream.pktWordsLeft < kHeaderWords) return Take::malformed;
    std::memcpy(&header, stream.pktCursor, sizeof header);
    if (!IsReadable(header, stream.pktWordsLeft, frameSamples)) return Take::malformed;

    const auto *pcm = reinterpret_cast<const int16_t *>(stream.pktCursor + kHeaderWords);
    AiPlcPkt *frame = AiPlcCreatePktSn(pcm, frameSamples * uint32_t{sizeof(int16_t)}, OPUS_DECODED,
                                       header.seqNumber, header.bandwidth);
    if (frame == nullptr) return Take::failed;
    const int32_t copied = AiPlcCopyPkt(node, frame);
    (void)AiPlcDestroyPkt(frame);
    if (copied != 0) return Take::failed;

    stream.pktCursor += header.lengthWords;
    stream.pktWordsLeft = static_cast<uint16_t>(stream.pktWordsLeft - header.lengthWords);
    samplesTaken += header.lengthWords - kHeaderWords;
    return Take::taken;
}

// Moves the read position by frames and recounts what is left. The positions are only counted with,
// never followed, so they are moved as addresses.
void AdvanceInput(AiPlcHostStream &stream, uint64_t frames, uint32_t frameSamples) {
    const uint64_t bytes = frames * frameSamples * sizeof(int16_t);
    const uintptr_t position =
        reinterpret_cast<uintptr_t>(stream.inReadPos) + static_cast<uintptr_t>(bytes);
    stream.inReadPos = std::bit_cast<uint8_t *>(position);
    const auto left =
        static_cast<intptr_t>(reinterpret_cast<uintptr_t>(stream.inEndPos) - position);
    stream.inAvailable = static_cast<uint16_t>(left / static_cast<intptr_t>(sizeof(int16_t)));
}

}  // namespace

TakenPackets TakePackets(AiPlcHostStream &stream, StAiPlcChannel &channel, int32_t packetCount) {
    const auto slots = static_cast<uint32_t>(std::max(packetCount, 0));
    if (packetCount < 0 || slots > channel.receivedRing->count) {
        AudAiplcLog(kUnit, __LINE__,
                    "packetCount = %d, must be 0 to %u; later frames replace earlier", packetCount,
                    unsigned{channel.receivedRing->count});
    }
    const uint32_t frameSamples = channel.frameSamples;
    TakenPackets taken{.slots = static_cast<uint16_t>(packetCount), .hasFrame = false};
    bool malformed = false;
    AiPlcPkt *slotNode = channel.receivedRing->head;
    for (uint32_t slot = 0; slot < slots && stream.pktWordsLeft >= frameSamples && !malformed;
         ++slot) {
        AiPlcPkt *node = slotNode;
        uint32_t samplesTaken = 0;
        Take outcome = Take::taken;
        while (outcome == Take::taken && samplesTaken < frameSamples) {
            outcome = TakeRecord(stream, frameSamples, node, samplesTaken);
            node = node->next;
        }
        taken.hasFrame = taken.hasFrame || samplesTaken > 0;
        malformed = outcome == Take::malformed;
        if (malformed) taken.slots = static_cast<uint16_t>(samplesTaken > 0 ? slot + 1 : slot);
        slotNode = slotNode->next;
    }
    if (slots > 0) AdvanceInput(stream, slots, frameSamples);
    return taken;
}

}  // namespace aiplc::pipeline
