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
    EXPECT_EQ(counted.Frames(FrameSource::startup), 3U);
    EXPECT_EQ(counted.Frames(FrameSource::decoded), 67U);
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP1_AHEAD2_OPUSPLC], 2U);  // 20 and 62
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP1_AHEAD1_OPUSPLC], 1U);  // 60
    double energy = 0;
    for (const int16_t sample : call.pcm)
        energy += std::pow(sample / 32768.0, 2) / 16000;
    EXPECT_NEAR(counted.totalAudioEnergy, energy, energy * 1e-9);
}

TEST(Statistics, TakePercentilesByNearestRank) {
    Statistics statistics;
    EXPECT_EQ(statistics.RequestTimeMs(0.5), 0);
    statistics.requestTimesMs = {4, 1, 3, 2};
    EXPECT_EQ(statistics.RequestTimeMs(0.5), 2);
    EXPECT_EQ(statistics.RequestTimeMs(0.51), 3);
    EXPECT_EQ(statistics.RequestTimeMs(1), 4);
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
