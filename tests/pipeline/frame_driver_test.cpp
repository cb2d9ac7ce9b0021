// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include "pipeline/scripted_host.h"

namespace {

int logLines = 0;

void Count(const char *, int32_t, const char *, ...) {
    ++logLines;
}

Samples Level(int level, size_t count = 320) {
    return Samples(count, static_cast<int16_t>(level));
}

class FrameDriver : public testing::Test {
  protected:
    void SetUp() override {
        logLines = 0;
        AiplcRegLog(Count);
    }
    void TearDown() override { AiplcRegLog(nullptr); }
    // Start-up buffering with frames 1, 2, 3 of these levels.
    void Buffer() {
        for (int i = 1; i <= 3; ++i) {
            ASSERT_EQ(m_host.Receive({{i, Level(i)}}), 0);
            ASSERT_EQ(m_host.Take(), Level(0));
        }
    }
    ScriptedHost m_host{false};
};

}  // namespace

TEST_F(FrameDriver, PlaysThreeFramesLateAfterSilence) {
    // Before anything arrives a lost call plays the fresh node's 960 zeros.
    EXPECT_EQ(m_host.Lose(), 0);
    EXPECT_EQ(m_host.Take(), Level(0, 960));
    Buffer();
    for (int i = 4; i < 20; ++i) {
        EXPECT_EQ(m_host.Receive({{i, Level(i)}}), 0);
        EXPECT_EQ(m_host.Take(), Level(i - 3));
    }
    EXPECT_EQ(m_host.context.samplesOut, 960U + 320U * 19);
    EXPECT_EQ(m_host.stats.concealedSamples, 960U);
    EXPECT_EQ(m_host.context.opusPlcRequests, 1U);
}

TEST_F(FrameDriver, OddInputSizesConcealAndCountersAreChosen) {
    Buffer();
    m_host.Stream().inAvailable = 321;
    m_host.context.altCounterSelect = 1;
    EXPECT_EQ(AiPlcApply(&m_host.context, 7, 0), 0);
    EXPECT_EQ(m_host.stats.concealedSamplesAlt, 320U);
    m_host.stats.counterMode = 1;
    EXPECT_EQ(m_host.Lose(), 0);
    EXPECT_EQ(m_host.stats.concealedSamples, 320U);

    m_host.Take();
    const AiPlcPkt *codec = m_host.Channel().opusRing->head;
    m_host.conceal = [](AiPlcDecodeRequest &) { return 5; };
    EXPECT_EQ(m_host.Lose(), -1);
    EXPECT_EQ(m_host.Take(), Samples());
    EXPECT_EQ(m_host.Channel().opusRing->head, codec->next);
    EXPECT_EQ(m_host.context.opusPlcRequests, 3U);
}

TEST_F(FrameDriver, MalformedRecordsEndTheReadingInsideTheArea) {
    Buffer();
    struct Case {
        int length;
        size_t words;
        int32_t packets;
    };
    const Case cases[] = {{0, 324, 1},   {4, 324, 1},    {325, 324, 1},         {65535, 324, 8},
                          {324, 320, 1}, {324, 323, 1},  {5, 324, 1},           {5, 329, 2},
                          {164, 648, 2}, {324, 324, -5}, {324, 324, 2000000000}};
    for (const Case &c : cases) {
        std::vector<uint16_t> words(c.words, 3);
        words[0] = static_cast<uint16_t>(c.length);
        logLines = 0;
        EXPECT_EQ(m_host.Apply(words, c.packets), 0) << c.length;
        EXPECT_FALSE(m_host.Take().empty()) << c.length;
        EXPECT_GT(logLines, 0) << c.length;
    }
    m_host.Stream().pktCursor = nullptr;
    m_host.Stream().inAvailable = 320;
    m_host.Stream().pktWordsLeft = 400;
    m_host.context.packetCount = 1;
    EXPECT_EQ(AiPlcApply(&m_host.context, 7, 0), 0);
}

TEST_F(FrameDriver, BadHostRecordsAreRefused) {
    Buffer();
    EXPECT_EQ(AiPlcApply(nullptr, 7, 0), -1);
    EXPECT_EQ(AiPlcApply(&m_host.context, 7, AIPLC_MAX_STREAMS), -1);
    EXPECT_EQ(AiPlcApply(&m_host.context, 7, 1), -1) << "a stream of null fields has no room";
    for (const uint32_t samples : {0U, 961U, 4000000000U}) {
        m_host.Channel().frameSamples = samples;
        EXPECT_EQ(m_host.Lose(), -1) << samples;
    }
    m_host.Channel().frameSamples = 320;
    m_host.context.stats = nullptr;
    EXPECT_EQ(m_host.Lose(), -1);
    m_host.context.stats = &m_host.stats;
    m_host.context.decodeLost = nullptr;
    EXPECT_EQ(m_host.Lose(), -1);
    EXPECT_EQ(logLines, 7);

    ScriptedHost host(false);
    host.conceal = [](AiPlcDecodeRequest &request) {
        request.pcmOutSamples = 65535;
        return 0;
    };
    EXPECT_EQ(host.Lose(), 0);
    EXPECT_EQ(host.Channel().opusRing->head->sampleCount, 960);
    m_host.context.channel = nullptr;
    EXPECT_EQ(m_host.Lose(), -1);
}

TEST_F(FrameDriver, OutputAreaIsCompactedOnlyWhenSixFramesDoNotFit) {
    Buffer();
    AiPlcHostStream &s = m_host.Stream();
    uint8_t *const end = s.outEnd;
    s.outWrite = end - 11520;
    s.outRead = s.outWrite;
    ASSERT_EQ(m_host.Receive({{4, Level(4)}}), 0);
    EXPECT_EQ(s.outWrite, end - 11520 + 640) << "exactly six frames of room: no move";

    // Now 11520 - 640 bytes remain: the pending frame and one more move to the front.
    ASSERT_EQ(m_host.Receive({{5, Level(5)}}), 0);
    EXPECT_EQ(s.outRead, s.outBase);
    EXPECT_EQ(s.outWrite, s.outBase + 640 + 640 + 640);
    EXPECT_EQ(reinterpret_cast<int16_t *>(s.outBase)[319], 1);
    EXPECT_EQ(s.outPending, 640);

    // An area without room for what must be kept drops the frame and says so.
    logLines = 0;
    s.outEnd = s.outBase + 700;
    s.outWrite = s.outBase + 640;
    EXPECT_EQ(m_host.Receive({{6, Level(6)}}), 0);
    EXPECT_EQ(s.outWrite, s.outBase + 640);
    EXPECT_EQ(logLines, 2);
}

TEST_F(FrameDriver, BufferingCallsWithSeveralPacketsRepeatTheFirst) {
    const AiPlcPkt *head = m_host.Channel().historyRing->head;
    ASSERT_EQ(m_host.Receive({{1, Level(1)}, {2, Level(2)}}), 0);
    EXPECT_EQ(m_host.Channel().historyRing->head, head->next->next);
    EXPECT_EQ(head->next->samples[0], 1);
    EXPECT_EQ(head->next->next->samples[0], 1);
    EXPECT_EQ(m_host.Channel().bufferedFrames, 1);
}
