// SPDX-License-Identifier: BSD-2-Clause

#include "host/statistics.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/host/call.h"

namespace aiplc::host {
namespace {

TEST(Statistics, CountAScriptedCallExactly) {
    const auto packets = Encode({.sampleRate = 16000}, SpeechLike(16000, 1.6));
    ASSERT_EQ(packets.size(), 80U);
    // A single loss, a pair, a burst of 160 ms, and two losses around one frame.
    const PlayedCall call = Play(packets, {.sampleRate = 16000, .useWorker = false},
                                 Losing({20, 30, 31, 40, 41, 42, 43, 44, 45, 46, 47, 60, 62}));
    const Statistics &counted = call.statistics;
    size_t bytes = 0;
    for (size_t i = 0; i < packets.size(); ++i)
        bytes += call.sources[i] == FrameSource::decoded ? packets[i].payload.size() : 0;
    EXPECT_EQ(counted.packetsReceived, 67U);
    EXPECT_EQ(counted.packetsLost, 13);
    EXPECT_EQ(counted.packetsDiscarded, 0U);
    EXPECT_EQ(counted.bytesReceived, bytes);
    EXPECT_EQ(counted.fecPacketsReceived, 0U);  // the sender writes none
    EXPECT_EQ(counted.totalSamplesReceived, 80U * 320);
    EXPECT_NEAR(counted.totalSamplesDuration, 1.6, 1e-9);
    EXPECT_EQ(counted.concealedSamples, 13U * 320);
    EXPECT_EQ(counted.silentConcealedSamples, 0U);
    EXPECT_EQ(counted.concealmentEvents, 5U);
    EXPECT_EQ(counted.Frames(FrameSource::startup), 3U);
    EXPECT_EQ(counted.Frames(FrameSource::decoded), 67U);
    EXPECT_EQ(counted.Frames(FrameSource::codec), 13U);
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP1_AHEAD2_OPUSPLC], 2U);  // 20 and 62
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP1_AHEAD1_OPUSPLC], 1U);  // 60
    EXPECT_EQ(counted.Requests(), 0U);
    double energy = 0;
    for (const int16_t sample : call.pcm)
        energy += std::pow(sample / 32768.0, 2) / 16000;
    EXPECT_NEAR(counted.totalAudioEnergy, energy, energy * 1e-9);
}

TEST(Statistics, TakePercentilesByNearestRank) {
    Statistics statistics;
    EXPECT_EQ(statistics.RequestTimeMs(0.5), 0);
    for (int i = 100; i >= 1; --i)
        statistics.requestTimesMs.push_back(static_cast<float>(i));
    EXPECT_EQ(statistics.RequestTimeMs(0.5), 50);
    EXPECT_EQ(statistics.RequestTimeMs(0.99), 99);
    EXPECT_EQ(statistics.RequestTimeMs(1), 100);
}

}  // namespace
}  // namespace aiplc::host
