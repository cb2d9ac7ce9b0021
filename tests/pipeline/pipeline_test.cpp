// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>

#include "tests/support/logged_test.h"
#include "tests/support/scripted_host.h"

namespace {

Samples Level(int level, size_t count = 320) {
    return Samples(count, static_cast<int16_t>(level));
}

class Pipeline : public LoggedTest {
  protected:
    Pipeline() { TakeLog(); }  // of the set-up
    static void KeepLineAndFormat(const char *, int32_t line, const char *format, ...) {
        log = std::to_string(line) + format;
    }
    // One call with packets of these numbers, their levels too, and its output.
    Samples Receive(const std::vector<int> &numbers) {
        std::vector<std::pair<int, Samples>> frames;
        std::ranges::transform(numbers, std::back_inserter(frames),
                               [](int number) { return std::pair(number, Level(number)); });
        EXPECT_EQ(m_host.Receive(frames), 0);
        EXPECT_EQ(m_host.stream.inAvailable, 0);
        return m_host.Take();
    }
    // The newest nodes, newest first, each as the first letter of its type (decoded, extrapolated,
    // interpolated, lost, mute, codec) and its number.
    static std::string Newest(const AiPlcRingList *ring, int count) {
        std::string text;
        for (const AiPlcPkt *node = ring->head; count > 0; --count, node = node->prev)
            text += " DEILM C"[node->pktType] + std::to_string(node->seqNumber) + " ";
        return text;
    }

    ScriptedHost m_host;
    AiPlcHostContext &m_context = m_host.context;
    AiPlcHostStream &m_stream = m_host.stream;
    StAiPlcChannel &m_channel = m_host.channel;
    const AiPlcRingList *m_input = m_channel.inputRing;
    const AiPlcRingList *m_history = m_channel.historyRing;
};

}  // namespace

TEST_F(Pipeline, LogsFinishedTextsOfAtMost1023Characters) {
    AudAiplcLog("unit", 12, "%d%% of %s", 5, "%s");
    AudAiplcLog("unit", 13, nullptr);
    AudAiplcLog("unit", 14, "%s", std::string(1023, 'x').c_str());
    AudAiplcLog("unit", 15, "%s", std::string(1024, 'x').c_str());
    EXPECT_EQ(TakeLog(), "unit: 5% of %s\nunit: " + std::string(1023, 'x') + '\n');
    AiplcRegLog(KeepLineAndFormat);
    AudAiplcLog("unit", 16, "line and format");
    EXPECT_EQ(TakeLog(), "16[AUDIO_AIPLC] %s");
    AiplcRegLog(nullptr);
    AudAiplcLog("unit", 17, "nobody listens");
    EXPECT_EQ(TakeLog(), "");
}

TEST(Channel, IsClearedInTheHostsBlock) {
    std::vector<uint8_t> block(AIPLC_CHANNEL_BYTES, 0xAA);
    StAiPlcChannel *channel = nullptr;
    EXPECT_EQ(AiPlcCreate(&channel, block.data()), 0);
    EXPECT_EQ(static_cast<void *>(channel), block.data());
    EXPECT_EQ(block, std::vector<uint8_t>(AIPLC_CHANNEL_BYTES, 0));
    EXPECT_EQ(AiPlcCreate(&channel, nullptr), -1);
}

TEST(Node, NumbersComeFromACounterThatSkips65535) {
    const int16_t pcm = 1;
    for (uint32_t i = 0, last = 0; i < 65540; ++i) {
        AiPlcPkt *node = AiPlcCreatePkt(&pcm, 2, OPUS_DECODED);
        EXPECT_TRUE(i == 0 || node->seqNumber == (last == 65534 ? 0 : last + 1)) << last;
        last = node->seqNumber;
        AiPlcDestroyPkt(node);
    }
}

TEST(Node, ACopyTakesOverAllButTheLinks) {
    const Samples pcm = {5, 6, 7};
    AiPlcPkt *source = AiPlcCreatePktSn(pcm.data(), 6, AIPLC_EXTRAPOLATE, 21, 1105);
    source->isOutput = 1;
    source->bands[2][319] = 2;
    source->hasNextPredict = 3;
    source->inferMode = 4;
    source->fusedIntoPredict = 5;
    source->fusedFromPredict = 6;
    source->opusPlcApplied = 7;
    source->inferTimeMs = 8;
    source->inferFailed = 9;
    for (const uint16_t room : {uint16_t{3}, uint16_t{2}}) {
        AiPlcPkt *copy = AiPlcCreatePktSn(Samples(3).data(), 6, PKT_MUTE, 1, 2);
        copy->sampleCount = room;
        source->next = source->prev = copy;
        EXPECT_EQ(AiPlcCopyPkt(copy, source), 0);
        EXPECT_EQ(Samples(copy->samples, copy->samples + 3), room == 3 ? pcm : Samples(3));
        source->next = source->prev = nullptr;
        EXPECT_EQ(std::exchange(copy->samples, source->samples), static_cast<void *>(copy + 1));
        EXPECT_EQ(std::memcmp(copy, source, sizeof *copy), 0);
        EXPECT_EQ(AiPlcDestroyPkt(copy), 0);
    }
    EXPECT_EQ(AiPlcCopyPkt(nullptr, source) + AiPlcCopyPkt(source, nullptr), -2);
    EXPECT_EQ(AiPlcDestroyPkt(source) + AiPlcDestroyPkt(nullptr), -1);
}

TEST_F(Pipeline, GapsWithinACallArePlaceheld) {
    m_channel.bufferedFrames = 3;
    Receive({10, 13});
    EXPECT_EQ(Newest(m_input, 4), "D13 L12 L11 D10 ");
    EXPECT_EQ(m_input->head->bands[0][0], 13);
    EXPECT_EQ(m_input->head->prev->bands[0][0], 0);
    EXPECT_EQ(m_input->head->prev->bandwidth, 0U);
    Receive({32768, 0});
    EXPECT_EQ(Newest(m_input, 2), "D0 D32768 ");
    Receive({65535, 1});
    EXPECT_EQ(Newest(m_input, 3), "D1 L0 D65535 ");
    // 13, twelve placeholders, 0: position k lands k mod 12 nodes behind the head.
    Receive({0, 13});
    EXPECT_EQ(Newest(m_input, 12), "L1 D0 L11 L10 L9 L8 L7 L6 L5 L4 L3 L2 ");
    // A hostile jump costs no more than one round of the ring.
    Receive({0, 32768});
    EXPECT_EQ(Newest(m_input, 9), "L8 L7 L6 L5 L4 L3 L2 L1 D0 ");
    // The ninth frame of a call replaces its first one.
    Receive({1, 2, 3, 4, 5, 6, 7, 8, 9});
    EXPECT_EQ(m_channel.receivedCount, 9);
    EXPECT_EQ(Newest(m_input, 9), "D9 D8 D7 D6 D5 D4 D3 D2 D9 ");
}

TEST_F(Pipeline, LateFramesReplacePlaceholdersAndNothingElse) {
    m_channel.bufferedFrames = 3;
    Receive({21});
    m_channel.inputAnalysisMem[47] = 1;
    m_host.Lose();
    EXPECT_EQ(m_channel.inputAnalysisMem[47], 0);
    EXPECT_EQ(Newest(m_history, 2), "L22 D21 ");
    EXPECT_EQ(m_history->head->bandwidth, 1105U);
    Receive({22, 23});
    EXPECT_EQ(Newest(m_history, 3), "D23 D22 D21 ");
    EXPECT_EQ(m_history->head->prev->samples[0], 22);
    // The placeholders between 21 and 24 must not overwrite received or predicted audio.
    for (const AiPlcPktType type : {OPUS_DECODED, AIPLC_EXTRAPOLATE, AIPLC_INTERPOLATE}) {
        m_history->head->pktType = type;
        Receive({21, 24});
        EXPECT_EQ(m_history->head->prev->pktType, type);
    }
    m_history->head->pktType = OPUSPLC_PREDICT;
    Receive({24, 25});
    EXPECT_EQ(Newest(m_history, 2), "D25 D24 ");
}

TEST_F(Pipeline, NumbersBehindTheHeadFollowIt) {
    m_channel.bufferedFrames = 3;
    const AiPlcPkt *fifth = m_history->head->prev->prev->prev;
    const uint32_t number = fifth->seqNumber;
    Receive({1});
    EXPECT_EQ(Newest(m_history, 4), "D1 M0 M65535 M65534 ");
    EXPECT_EQ(fifth->seqNumber, number);
    EXPECT_EQ(AiPlcCheckHisBuffStatus(nullptr), -1);
    for (int position = 1; position <= 4; ++position) {
        EXPECT_EQ(AiPlcCheckHisBuffStatus(&m_channel), position);
        AiPlcMaintainBuff(&m_channel);
    }
}

TEST_F(Pipeline, LimitIsSixFramesExtrapolatedOrLost) {
    AiPlcPkt *frames[7] = {m_history->head->prev->prev->prev};
    for (int i = 0; i < 7; ++i) {
        if (i > 0) frames[i] = frames[i - 1]->prev;
        frames[i]->pktType = i % 2 == 0 ? PKT_LOST : AIPLC_EXTRAPOLATE;
    }
    for (int i = 0; i < 7; ++i) {
        for (const AiPlcPktType type : {OPUS_DECODED, AIPLC_EXTRAPOLATE, AIPLC_INTERPOLATE,
                                        PKT_LOST, PKT_MUTE, OPUSPLC_PREDICT}) {
            const AiPlcPktType before = std::exchange(frames[i]->pktType, type);
            const bool counts = i == 6 || type == AIPLC_EXTRAPOLATE || type == PKT_LOST;
            EXPECT_EQ(AiPlcCheckPredictLimit(&m_channel), counts ? 1 : 0) << i << ' ' << type;
            frames[i]->pktType = before;
        }
    }
}

// Of a call's frames the newest is split first; the codec's frame is the first one received.
TEST(Bands, AreSplitNewestFrameFirst) {
    ScriptedHost host(true);
    Samples frames[2];
    for (int i = 0; i < 960; ++i) {
        frames[0].push_back(static_cast<int16_t>(i * 7919 % 20011 - 10000));
        frames[1].push_back(static_cast<int16_t>(i * 104729 % 19997 - 10000));
    }
    const auto split = [](const Samples &frame, float *state) {
        std::vector<float> bands(frame.begin(), frame.end());
        EXPECT_EQ(AiPlcThreeBandAnalysis(bands.data(), bands.data(), state, 960), 0);
        return Samples(bands.begin(), bands.end());
    };
    const auto bandsOf = [](const AiPlcPkt &node) {
        return Samples(node.bands[0], node.bands[0] + 960);
    };
    host.channel.bufferedFrames = 3;
    host.channel.opusLowPassMem16K[30] = host.channel.opusLowPassMem48K[90] = 1;
    EXPECT_EQ(host.Receive({{1, frames[0]}, {2, frames[1]}}), 0);
    const AiPlcPkt &newest = *host.channel.historyRing->head;
    float input[48] = {}, codec[48] = {};
    EXPECT_EQ(bandsOf(newest), split(frames[1], input));
    EXPECT_EQ(bandsOf(*newest.prev), split(frames[0], input));
    EXPECT_EQ(bandsOf(*host.channel.opusRing->head), split(frames[0], codec));
    EXPECT_TRUE(std::ranges::equal(host.channel.inputAnalysisMem, input));
    EXPECT_TRUE(std::ranges::equal(host.channel.opusAnalysisMem, codec));
    // A wideband frame puts the low-pass of both rates to rest.
    EXPECT_EQ(host.channel.opusLowPassMem16K[30] + host.channel.opusLowPassMem48K[90], 0);
}

TEST_F(Pipeline, BufferingCallsWithSeveralPacketsRepeatTheFirst) {
    EXPECT_EQ(Receive({1, 2}), Level(0));
    EXPECT_EQ(Newest(m_history, 2), "D1 D1 ");
    EXPECT_EQ(m_channel.bufferedFrames, 1);
}

TEST_F(Pipeline, PlaysThreeFramesLateAndCountsWhatTheCodecConceals) {
    // Before anything arrives a lost call plays the fresh node's 960 zeros.
    EXPECT_EQ(m_host.Lose(), 0);
    EXPECT_EQ(m_host.Take(), Level(0, 960));
    for (int i = 1; i < 20; ++i)
        EXPECT_EQ(Receive({i}), Level(std::max(i - 3, 0)));
    const AiPlcPkt &played = *m_history->head->prev->prev->prev;
    EXPECT_EQ(played.isOutput, 1U);
    EXPECT_EQ(played.next->isOutput, 0U);
    m_context.altCounterSelect = 1;
    m_stream.inAvailable = 321;  // no whole number of frames
    EXPECT_EQ(AiPlcApply(&m_context, 7, 0), 0);
    m_host.stats.counterMode = 1;
    EXPECT_EQ(m_host.Lose(), 0);
    EXPECT_EQ(m_host.stats.concealedSamplesAlt, 320U);
    EXPECT_EQ(m_host.stats.concealedSamples, 960U + 320U);
    EXPECT_EQ(m_context.samplesOut, 960U + 320U * 21);
    m_host.Take();
    const AiPlcPkt *codec = m_channel.opusRing->head->next;
    m_context.decoderTag = 200;
    m_host.conceal = [codec](AiPlcDecodeRequest &request) {
        EXPECT_EQ(request.decoderTag, 200);
        EXPECT_EQ(request.plcFlag, 1U);
        EXPECT_EQ(request.pcmOut, codec->samples);
        EXPECT_EQ(request.pcmOutSamples, 0);
        return 5;
    };
    EXPECT_EQ(m_host.Lose(), -1);
    EXPECT_EQ(m_host.Take(), Samples());
    EXPECT_EQ(m_channel.opusRing->head, codec) << "moved by a failed concealment, too";
    EXPECT_EQ(m_context.opusPlcRequests, 4U);
}

TEST_F(Pipeline, MalformedRecordsEndTheReadingInsideTheArea) {
    m_channel.bufferedFrames = 3;
    // Record length, words in the area, packets; slots played. Without any the codec conceals.
    const std::tuple<uint16_t, size_t, int32_t, int> cases[] = {
        {0, 324, 1, 0},     {4, 324, 1, 0},   {325, 324, 1, 0},
        {65535, 324, 8, 0}, {324, 319, 1, 0}, {324, 320, 1, 0},
        {324, 323, 1, 0},   {5, 320, 1, 0},   {324, 324, -5, 0},
        {324, 324, 0, 0},   {5, 324, 1, 1},   {5, 329, 2, 1},
        {164, 648, 2, 1},   {324, 648, 3, 2}, {324, 324, 2000000000, 2000000000 % 65536}};
    int16_t &received = m_channel.receivedRing->head->samples[0];
    for (const auto &[length, size, packets, played] : cases) {
        std::vector<uint16_t> words(size, 9);
        words[0] = length;
        received = 0;
        log.clear();
        const uint32_t requests = m_context.opusPlcRequests;
        EXPECT_EQ(m_host.Apply(words, packets), 0) << length;
        EXPECT_EQ(received == 9, played > 0) << length << " " << size;
        EXPECT_EQ(m_context.opusPlcRequests - requests, played > 0 ? 0U : 1U) << length;
        EXPECT_EQ(m_history->head->pktType, played > 0 ? OPUS_DECODED : PKT_LOST) << length;
        EXPECT_TRUE(played == 0 || m_channel.receivedCount == played) << length;
        EXPECT_FALSE(log.empty()) << length;
    }
    // Records of half a frame share a slot; the next slot begins at the next node all the same.
    std::vector<uint16_t> halves(3 * 164 + 324);
    for (size_t i = 0; i < 4; ++i) {
        halves[164 * i] = 164;
        halves[164 * i + 1] = static_cast<uint16_t>(i + 1);
    }
    EXPECT_EQ(m_host.Apply(halves, 2), 0);
    EXPECT_EQ(Newest(m_input, 3), "D3 L2 D1 ");
    EXPECT_EQ(m_channel.receivedRing->head->next->next->seqNumber, 4U);
    m_stream.pktCursor = nullptr;
    m_stream.pktWordsLeft = 400;
    m_stream.inAvailable = 320;
    EXPECT_EQ(AiPlcApply(&m_context, 7, 0), 0);
    // A record may be longer than its frame.
    log.clear();
    m_host.bandwidth = 0x12345;
    EXPECT_EQ(m_host.Receive({{4, Level(4, 328)}, {5, Level(5)}}), 0);
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(m_history->head->samples[0], 5);
    EXPECT_EQ(m_history->head->bandwidth, 0x12345U);
}

TEST_F(Pipeline, BadHostRecordsAreRefused) {
    m_host.conceal = [](AiPlcDecodeRequest &request) { return request.pcmOutSamples = 65535, 0; };
    EXPECT_EQ(m_host.Lose(), 0);
    EXPECT_EQ(m_channel.opusRing->head->sampleCount, 960);
    EXPECT_EQ(AiPlcApply(nullptr, 7, 0), -1);
    EXPECT_EQ(AiPlcApply(&m_context, 7, AIPLC_MAX_STREAMS), -1);
    EXPECT_EQ(AiPlcApply(&m_context, 7, 1), -1) << "a stream of null fields has no room";
    const std::function<void()> faults[] = {
        [&] { m_channel.frameSamples = 0; }, [&] { m_channel.frameSamples = 961; },
        [&] { m_context.stats = nullptr; }, [&] { m_context.decodeLost = nullptr; },
        [&] { m_context.channel = nullptr; }};
    for (const auto &fault : faults) {
        const AiPlcHostContext good = m_context;
        fault();
        EXPECT_EQ(m_host.Lose(), -1);
        m_context = good;
        m_channel.frameSamples = 320;
    }
    EXPECT_EQ(std::ranges::count(log, '\n'), 8) << "two of them cut counts";
}

TEST_F(Pipeline, OutputAreaIsCompactedOnlyWhenSixFramesDoNotFit) {
    m_host.stats.sampleRate = 16999;  // 16 samples a millisecond
    for (int i = 1; i <= 3; ++i)
        Receive({i});
    m_stream.outRead = m_stream.outWrite = m_stream.outEnd - 11520;
    EXPECT_EQ(m_host.Receive({{4, Level(4)}}), 0);
    EXPECT_EQ(m_stream.outWrite, m_stream.outEnd - 11520 + 640) << "room for exactly six frames";
    // Now 11520 - 640 bytes remain: the pending frame and one more move to the front.
    EXPECT_EQ(m_host.Receive({{5, Level(5)}}), 0);
    EXPECT_EQ(m_stream.outRead, m_stream.outBase);
    EXPECT_EQ(m_stream.outWrite, m_stream.outBase + 1920);
    EXPECT_EQ(reinterpret_cast<int16_t *>(m_stream.outBase)[319], 1);
    EXPECT_EQ(m_stream.outPending, 640);
    // An area without room for what must be kept drops the frame and says so.
    m_stream.outEnd = m_stream.outBase + 700;
    m_stream.outWrite = m_stream.outBase + 640;
    EXPECT_EQ(m_host.Receive({{6, Level(6)}}), 0);
    EXPECT_EQ(m_stream.outWrite, m_stream.outBase + 640);
    EXPECT_EQ(std::ranges::count(log, '\n'), 2);
}

TEST_F(Pipeline, HostThatKeeps20MsInFrontOfItsReadingHearsEveryFrame) {
    m_stream.outWrite += 640;
    Samples heard, played;
    for (int i = 1; i < 100; ++i) {
        EXPECT_EQ(m_host.Receive({{i, Level(i)}}), 0);
        played.insert(played.end(), 320, static_cast<int16_t>(std::max(i - 3, 0)));
        if (i % 3 != 0) continue;
        const auto *next = reinterpret_cast<const int16_t *>(m_stream.outRead) + 320;
        heard.insert(heard.end(), next, next + m_stream.outPending);
        m_stream.outRead += ptrdiff_t{2} * std::exchange(m_stream.outPending, uint16_t{0});
    }
    EXPECT_EQ(heard, played);
}
