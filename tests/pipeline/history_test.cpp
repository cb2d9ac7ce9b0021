// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <tuple>

#include "pipeline/scripted_host.h"

namespace {

// Types and numbers of the newest nodes of a ring, newest first.
std::vector<std::pair<int, int>> Newest(const AiPlcRingList &ring, int count) {
    std::vector<std::pair<int, int>> nodes;
    const AiPlcPkt *node = ring.head;
    for (int i = 0; i < count; ++i, node = node->prev) {
        nodes.emplace_back(static_cast<int>(node->pktType), static_cast<int>(node->seqNumber));
    }
    return nodes;
}
using Nodes = std::vector<std::pair<int, int>>;

class History : public testing::Test {
  protected:
    // Lays frames with these numbers into the received ring and returns the first.
    AiPlcPkt *Received(const std::vector<int> &numbers) {
        AiPlcPkt *node = m_host.Channel().receivedRing->head;
        for (const int number : numbers) {
            const Samples pcm(320, static_cast<int16_t>(number));
            AiPlcPkt *frame = AiPlcCreatePktSn(pcm.data(), 640, OPUS_DECODED,
                                               static_cast<uint16_t>(number), 1105);
            AiPlcCopyPkt(node, frame);
            AiPlcDestroyPkt(frame);
            node = node->next;
        }
        return m_host.Channel().receivedRing->head;
    }
    int32_t Update(const std::vector<int> &numbers) {
        return AiPlcUpdateHisBuffStatus(&m_host.Channel(), Received(numbers),
                                        static_cast<uint16_t>(numbers.size()));
    }
    const AiPlcRingList &Ring() { return *m_host.Channel().historyRing; }

    ScriptedHost m_host{false};
};

}  // namespace

TEST(SequenceNumbers, DifferAcrossTheWrap) {
    const std::tuple<int, int, int> cases[] = {
        {5, 3, 2},         {3, 5, -2},         {1, 65535, 2},      {65535, 1, -2},
        {32768, 0, 32768}, {0, 32768, -32768}, {40000, 0, -25536}, {0, 40000, 25536}};
    for (const auto &[a, b, difference] : cases) {
        EXPECT_EQ(AiPlcCalSeqNumberDif(static_cast<uint16_t>(a), static_cast<uint16_t>(b)),
                  difference);
    }
}

TEST_F(History, GapsWithinACallArePlaceheld) {
    StAiPlcChannel &channel = m_host.Channel();
    EXPECT_EQ(AiPlcUpdateInputBuff(&channel, Received({10, 13}), 2), 4);
    EXPECT_EQ(Newest(*channel.inputRing, 4),
              (Nodes{{OPUS_DECODED, 13}, {PKT_LOST, 12}, {PKT_LOST, 11}, {OPUS_DECODED, 10}}));
    EXPECT_EQ(channel.inputRing->head->bands[0][0], 13);
    EXPECT_EQ(channel.inputRing->head->prev->bands[0][0], 0);
    EXPECT_EQ(AiPlcUpdateInputBuff(&channel, Received({13, 10}), 2), 2);
    EXPECT_EQ(AiPlcUpdateInputBuff(&channel, Received({65535, 1}), 2), 3);
    EXPECT_EQ(Newest(*channel.inputRing, 3),
              (Nodes{{OPUS_DECODED, 1}, {PKT_LOST, 0}, {OPUS_DECODED, 65535}}));
    EXPECT_EQ(AiPlcUpdateInputBuff(&channel, nullptr, 0), 0);
}

TEST_F(History, PositionsPastTheRingOverwriteTheFirst) {
    // 13, twelve placeholders, 0: position k lands k mod 12 nodes behind the head.
    StAiPlcChannel &channel = m_host.Channel();
    EXPECT_EQ(AiPlcUpdateInputBuff(&channel, Received({0, 13}), 2), 14);
    const Nodes nodes = Newest(*channel.inputRing, 12);
    EXPECT_EQ(nodes[0], (std::pair<int, int>{PKT_LOST, 1}));
    EXPECT_EQ(nodes[1], (std::pair<int, int>{OPUS_DECODED, 0}));
    EXPECT_EQ(nodes[2], (std::pair<int, int>{PKT_LOST, 11}));
    EXPECT_EQ(nodes[11], (std::pair<int, int>{PKT_LOST, 2}));
    // A hostile jump costs no more than one round of the ring.
    EXPECT_EQ(AiPlcUpdateInputBuff(&channel, Received({0, 32768}), 2), 32769);
    EXPECT_EQ(Newest(*channel.inputRing, 9)[8], (std::pair<int, int>{OPUS_DECODED, 0}));
}

TEST_F(History, LateFramesReplacePlaceholdersAndNothingElseDoes) {
    Update({20});
    Update({21});
    ASSERT_EQ(AiPlcUpdateHisBuffStatus(&m_host.Channel(), nullptr, 0), 0);
    EXPECT_EQ(Newest(Ring(), 2), (Nodes{{PKT_LOST, 22}, {OPUS_DECODED, 21}}));
    EXPECT_EQ(Ring().head->bandwidth, 1105U) << "a placeholder keeps the stream's bandwidth";
    EXPECT_EQ(AiPlcCheckHisBuffStatus(&m_host.Channel()), 2);

    Update({22, 23});
    EXPECT_EQ(
        Newest(Ring(), 4),
        (Nodes{{OPUS_DECODED, 23}, {OPUS_DECODED, 22}, {OPUS_DECODED, 21}, {OPUS_DECODED, 20}}));
    EXPECT_EQ(Ring().head->prev->samples[0], 22);

    // The placeholder between 21 and 24 must not overwrite received audio.
    Update({21, 24});
    EXPECT_EQ(Newest(Ring(), 3),
              (Nodes{{OPUS_DECODED, 24}, {OPUS_DECODED, 23}, {OPUS_DECODED, 22}}));
    Ring().head->prev->pktType = OPUSPLC_PREDICT;
    Update({23, 25});
    EXPECT_EQ(Newest(Ring(), 3),
              (Nodes{{OPUS_DECODED, 25}, {OPUS_DECODED, 24}, {OPUS_DECODED, 23}}));
}

TEST_F(History, NumbersBehindTheHeadFollowIt) {
    Update({5});
    Update({900});
    EXPECT_EQ(Newest(Ring(), 4)[1].second, 899);
    EXPECT_EQ(Newest(Ring(), 4)[3].second, 897);
    Update({1});
    EXPECT_EQ(Newest(Ring(), 4)[3].second, 65534);
    for (int i = 0; i < 3; ++i)
        AiPlcMaintainBuff(&m_host.Channel());
    EXPECT_EQ(AiPlcCheckHisBuffStatus(&m_host.Channel()), 4);
    EXPECT_EQ(AiPlcCheckHisBuffStatus(nullptr), -1);
}
