// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

namespace {

struct Destroy {
    void operator()(AiPlcPkt *node) const { AiPlcDestroyPkt(node); }
    void operator()(AiPlcRingList *ring) const { AiPlcDestroyRingList(ring); }
};
using Node = std::unique_ptr<AiPlcPkt, Destroy>;
using Ring = std::unique_ptr<AiPlcRingList, Destroy>;

std::vector<int16_t> Ramp(size_t count) {
    std::vector<int16_t> ramp(count);
    std::iota(ramp.begin(), ramp.end(), int16_t{1});
    return ramp;
}

}  // namespace

TEST(Channel, IsClearedInTheHostsBlock) {
    std::vector<uint8_t> block(AIPLC_CHANNEL_BYTES, 0xAA);
    auto *channel = reinterpret_cast<StAiPlcChannel *>(1);
    EXPECT_EQ(AiPlcCreate(&channel, nullptr), -1);
    EXPECT_EQ(channel, nullptr);
    EXPECT_EQ(AiPlcCreate(&channel, block.data()), 0);
    EXPECT_EQ(static_cast<void *>(channel), block.data());
    EXPECT_EQ(block, std::vector<uint8_t>(AIPLC_CHANNEL_BYTES, 0));
}

TEST(Packet, NumbersComeFromACounterThatSkips65535) {
    const std::vector<int16_t> pcm = Ramp(1);
    uint32_t last = Node(AiPlcCreatePkt(pcm.data(), 2, OPUS_DECODED))->seqNumber;
    bool wrapped = false;
    for (int i = 0; i < 65540; ++i) {
        const Node numbered(AiPlcCreatePktSn(pcm.data(), 2, OPUS_DECODED, 4711, 1101));
        ASSERT_EQ(numbered->seqNumber, 4711U);
        const Node node(AiPlcCreatePkt(pcm.data(), 2, OPUS_DECODED));
        ASSERT_EQ(node->seqNumber, last == 65534 ? 0 : last + 1);
        wrapped = wrapped || node->seqNumber == 0;
        last = node->seqNumber;
    }
    EXPECT_TRUE(wrapped);
    EXPECT_EQ(AiPlcCreatePkt(nullptr, 2, OPUS_DECODED), nullptr);
}

TEST(Packet, CopyTakesAudioAndFieldsButNotLinks) {
    const Ring ring(AiPlcInitRingList(1));
    AiPlcPkt *target = ring->head;
    EXPECT_EQ(target->next, target);
    EXPECT_EQ(target->prev, target);

    const std::vector<int16_t> pcm = Ramp(320);
    const Node source(AiPlcCreatePktSn(pcm.data(), 640, AIPLC_INTERPOLATE, 9, 1104));
    source->bands[2][319] = 5;
    source->inferTimeMs = 1.5F;
    source->inferMode = 3;
    EXPECT_EQ(AiPlcCopyPkt(target, source.get()), 0);
    EXPECT_EQ(target->sampleCount, 320);
    EXPECT_EQ(target->samples[319], 320);
    EXPECT_EQ(target->bands[2][319], 5);
    EXPECT_EQ(target->pktType, AIPLC_INTERPOLATE);
    EXPECT_EQ(target->inferTimeMs, 1.5F);
    EXPECT_EQ(target->next, target);

    // A longer source leaves the samples but hands over its count and fields.
    const std::vector<int16_t> longer(960, 77);
    const Node full(AiPlcCreatePktSn(longer.data(), 1920, OPUS_DECODED, 10, 0));
    EXPECT_EQ(AiPlcCopyPkt(target, full.get()), 0);
    EXPECT_EQ(target->sampleCount, 960);
    EXPECT_EQ(target->samples[0], 1);
    EXPECT_EQ(AiPlcCopyPkt(nullptr, full.get()), -1);
    EXPECT_EQ(AiPlcCopyPkt(target, nullptr), -1);
}

TEST(RingList, IsAClosedCircleOfSilence) {
    EXPECT_EQ(AiPlcInitRingList(0), nullptr);
    EXPECT_EQ(AiPlcDestroyRingList(nullptr), -1);
    const Ring ring(AiPlcInitRingList(12));
    const AiPlcPkt *node = ring->head;
    for (int i = 0; i < 12; ++i, node = node->prev) {
        EXPECT_EQ(node->prev->next, node);
        EXPECT_EQ(node->pktType, PKT_MUTE);
        EXPECT_EQ(node->sampleCount, 960);
        // Each was made after the older one, but at the seam of the circle.
        EXPECT_EQ((node->prev->seqNumber + 1) % 65535 == node->seqNumber, i < 11);
    }
    EXPECT_EQ(node, ring->head);
}
