// SPDX-License-Identifier: BSD-2-Clause

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "host/packet_buffer.h"
#include "tests/host/call.h"

namespace aiplc::host {
namespace {

std::optional<int64_t> ByIndex(size_t index, int64_t /*due*/) {
    return index;
}

TEST(Hostile, AFloodIsBounded) {
    Receiver farAhead(NoWorker(16000));
    Receiver crowded(NoWorker(16000));
    for (uint32_t i = 0; i < 3000; ++i) {
        farAhead.Push({static_cast<uint16_t>(i), i * 960, {31 << 3, 1, 2}});
        crowded.Push({static_cast<uint16_t>(i), i * 120, {31 << 3, 1, 2}});
    }
    // 10 s are kept, 0 to 500 frames ahead of the one that is due.
    EXPECT_EQ(farAhead.GetStatistics().packetsDiscarded, 3000U - 501);
    EXPECT_EQ(crowded.GetStatistics().packetsDiscarded, 3000 - PacketBuffer::kCapacity);
}

TEST(Hostile, UndecodableAndStrayPacketsAreLostOnes) {
    Packets packets = Speech({.sampleRate = 16000}, 1);
    packets[20].payload.clear();
    packets[30].payload.assign(4000, 0xFF);
    packets[40].timestamp += 0x80000000U;
    const PlayedCall call(packets, NoWorker(16000), ByIndex);
    EXPECT_EQ(call.statistics.packetsUndecodable, 2U);
    EXPECT_EQ(call.statistics.packetsDiscarded, 1U);
    EXPECT_EQ(call.statistics.timelineRestarts, 0U);
    EXPECT_EQ(call.sources.substr(20), "cdddddddddcdddddddddcddddddddd");
}

TEST(Hostile, ARestartedOrSlowClockIsFollowed) {
    Packets packets = Speech({.sampleRate = 16000}, 4);
    // From packet 100 on everything comes 200 ms late, for good.
    const PlayedCall slow(packets, NoWorker(16000), Losing({}, 100, 199, 10));
    EXPECT_EQ(slow.statistics.timelineRestarts, 1U);
    EXPECT_EQ(slow.sources.substr(0, 100), std::string(100, 'd'));
    EXPECT_EQ(slow.sources.substr(140), std::string(60, 'd'));

    // The sender restarts at packet 100 with other numbers; its first packet only announces that.
    for (size_t i = 100; i < packets.size(); ++i) {
        packets[i].timestamp += 0x70000000;
        packets[i].sequenceNumber = static_cast<uint16_t>(packets[i].sequenceNumber + 20000);
    }
    const PlayedCall restarted(packets, NoWorker(16000), ByIndex, 200);
    EXPECT_EQ(restarted.statistics.timelineRestarts, 1U);
    EXPECT_EQ(restarted.sources, std::string(100, 'd') + "c" + std::string(99, 'd'));
}

TEST(Hostile, OptionsOutOfRangeAreRefused) {
    EXPECT_THROW(Receiver({.sampleRate = 8000}), std::runtime_error);
    EXPECT_THROW(Receiver({.decoderComplexity = 11}), std::runtime_error);
    EXPECT_THROW(Sender({.packetMs = 30}), std::runtime_error);
}

TEST(Statistics, CountAScriptedCallExactly) {
    const Packets packets = Speech({.sampleRate = 16000}, 1.6);
    // A single loss, a pair, a burst of 160 ms, and two losses around one frame.
    const PlayedCall call(packets, NoWorker(16000),
                          Losing({20, 30, 31, 40, 41, 42, 43, 44, 45, 46, 47, 60, 62}));
    const Statistics &counted = call.statistics;
    size_t bytes = 0;
    for (size_t i = 0; i < packets.size(); ++i)
        bytes += call.sources[i] == 'd' ? packets[i].payload.size() : 0;
    EXPECT_EQ(counted.packetsReceived, 67U);
    EXPECT_EQ(counted.packetsLost, 13);
    EXPECT_EQ(counted.bytesReceived, bytes);
    EXPECT_EQ(counted.totalSamplesReceived, 25600U);
    EXPECT_NEAR(counted.totalSamplesDuration, 1.6, 1e-9);
    EXPECT_EQ(counted.concealedSamples, 4160U);
    EXPECT_EQ(counted.silentConcealedSamples, 0U);
    EXPECT_EQ(counted.concealmentEvents, 5U);
    EXPECT_EQ(counted.framesBySource[AIPLC_SOURCE_STARTUP], 3U);
    EXPECT_EQ(counted.framesBySource[AIPLC_SOURCE_DECODED], 67U);
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP1_AHEAD2_OPUSPLC], 2U);  // 20 and 62
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP1_AHEAD1_OPUSPLC], 1U);  // 60
    double energy = 0;
    for (const int16_t sample : call.pcm)
        energy += std::pow(sample / 32768.0, 2) / 16000;
    EXPECT_NEAR(counted.totalAudioEnergy, energy, energy * 1e-9);
}

TEST(RequestTimesTest, GivesQuantilesByNearestRankOfTheLastOnes) {
    RequestTimes times;
    EXPECT_EQ(times.Quantile(0.5), 0);
    for (const float time : {9.0F, 4.0F, 1.0F, 3.0F, 2.0F})
        times.Add(time);
    EXPECT_EQ(times.Quantile(0.6), 3);
    EXPECT_EQ(times.Quantile(0.61), 4);
    for (size_t i = 0; i < RequestTimes::kRemembered; ++i)
        times.Add(i < 10 ? 5.0F : 6.0F);
    EXPECT_EQ(times.Quantile(0), 5);
    EXPECT_EQ(times.Quantile(1), 6);
    EXPECT_EQ(times.Longest(), 9);
}

// The pairs' first frames.
std::vector<size_t> Pairs() {
    std::vector<size_t> pairs;
    for (size_t first = 20; first < 390; first += 10)
        pairs.push_back(first);
    return pairs;
}

Arrival LosingPairs() {
    std::vector<size_t> lost;
    for (const size_t first : Pairs())
        lost.insert(lost.end(), {first, first + 1});
    return Losing(lost);
}

TEST(Predictor, FillsPairsOfLostFrames) {
    const Packets packets = Speech({.sampleRate = 16000}, 8);
    const ReceiverOptions options{.sampleRate = 16000, .predictor = AIPLC_PREDICTOR_IN_PROCESS};
    const PlayedCall call(packets, options, LosingPairs());
    const Statistics &counted = call.statistics;
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP2_AHEAD2], Pairs().size());
    EXPECT_EQ(counted.requests, Pairs().size());
    EXPECT_EQ(counted.requestsFailed + counted.decisionsHeldOff, 0U);
    EXPECT_GT(counted.requestTimeP50Ms, 0);
    EXPECT_GE(counted.requestTimeMaxMs, counted.requestTimeP99Ms);
    for (const size_t first : Pairs()) {
        EXPECT_EQ(call.sources.substr(first - 1, 4), "diid") << first;
        EXPECT_EQ(call.frames[first].fusedIntoPredict, 1);
    }
    EXPECT_EQ(counted.concealedSamples, 2 * Pairs().size() * 320);
}

TEST(Predictor, IsTheSameInAWorkerAndInThisProcess) {
    for (const uint32_t rate : {16000U, 48000U}) {
        const Packets packets = Speech({.sampleRate = rate}, 8);
        const auto play = [&](AiPlcPredictor predictor) {
            return PlayedCall(packets, {.sampleRate = rate, .predictor = predictor}, LosingPairs());
        };
        PlayedCall worker = play(AIPLC_PREDICTOR_WORKER);
        // A busy machine may be late for a prediction.
        for (int retries = 19; retries > 0 && worker.statistics.requestsFailed > 0; --retries)
            worker = play(AIPLC_PREDICTOR_WORKER);
        ASSERT_EQ(worker.statistics.requestsFailed, 0U);
        EXPECT_GT(worker.statistics.initTimeMs, 0);
        EXPECT_TRUE(worker.pcm == play(AIPLC_PREDICTOR_IN_PROCESS).pcm) << rate;
    }
}

TEST(Predictor, StaysWhenACallBeginsAnew) {
    const Packets packets = Speech({.sampleRate = 16000}, 1);
    Receiver receiver({.sampleRate = 16000, .predictor = AIPLC_PREDICTOR_IN_PROCESS});
    const auto play = [&] {
        Pcm pcm;
        for (size_t i = 0; i < packets.size(); ++i) {
            if (i % 10 != 5 && i % 10 != 6) receiver.Push(packets[i]);
            std::ranges::copy(receiver.Pull().samples, std::back_inserter(pcm));
        }
        return pcm;
    };
    const Pcm first = play();
    const uint64_t requests = receiver.GetStatistics().requests;
    EXPECT_GT(requests, 0U);
    const float initTimeMs = receiver.GetStatistics().initTimeMs;
    receiver.Reset();
    EXPECT_EQ(receiver.GetStatistics().packetsReceived, 0U);
    EXPECT_EQ(receiver.GetStatistics().initTimeMs, initTimeMs);
    EXPECT_TRUE(play() == first);
    EXPECT_EQ(receiver.GetStatistics().requests, requests);
}

// The sound is turned over at frame 19, so that the prediction made for it and the packet
// that comes late for it disagree by twice the amplitude.
TEST(Worker, APredictionThatIsBeingPlayedIsFadedIntoTheLatePacket) {
    constexpr size_t kBoundary = size_t{19} * 320;
    const SenderOptions options{.sampleRate = 16000, .bitrate = 64000, .packetMs = 60};
    const auto turn = static_cast<double>(kBoundary) - Sender(options).LookAhead();
    Pcm pcm;
    for (int i = 0; i < 16000; ++i)
        pcm.push_back(static_cast<int16_t>((i < turn ? 8000 : -8000) * std::cos(0.1 * (i - turn))));
    const Packets packets = Encode(options, pcm);
    const Arrival late = Losing({}, 6, 6, 4);
    const auto step = [](const PlayedCall &call) {
        int largest = 0;
        for (size_t i = kBoundary - 4; i < kBoundary + 4; ++i)
            largest = std::max(largest, std::abs(call.pcm[i] - call.pcm[i - 1]));
        return largest;
    };
    // A busy machine may be late for the prediction.
    PlayedCall call(packets, {.sampleRate = 16000}, late);
    for (int retries = 19; retries > 0 && call.sources.substr(17, 4) != "dell"; --retries)
        call = PlayedCall(packets, {.sampleRate = 16000}, late);
    ASSERT_EQ(call.sources.substr(17, 4), "dell");
    // The tone itself moves by 800 a sample at most.
    EXPECT_GT(step(PlayedCall(packets, NoWorker(16000))), 8000);
    EXPECT_LT(step(call), 1600);
}

}  // namespace
}  // namespace aiplc::host
