// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include "receiver/time_stretch.h"
#include "tests/receiver/simulated_network.h"

namespace aiplc::receiver {
namespace {

AiPlcReceiverOptions Buffer(int32_t kind, int32_t minDelayMs, int32_t maxDelayMs = 500) {
    AiPlcReceiverOptions options;
    AiPlcReceiverDefaults(&options);
    options.jitterBuffer = kind;
    options.minDelayMs = minDelayMs;
    options.maxDelayMs = maxDelayMs;
    return options;
}

// The bounds leave a third of what was measured; make jitter-table prints the figures.
TEST(JitterBuffer, HoldsDelayAndLateLossesOnSimulatedNetworks) {
    struct Bound {
        Network network;
        double delayMs;
        double lateLostPercent;
        double onTimePercent;
    };
    constexpr Bound kBounds[] = {{Network::lan, 80, 0, 99},
                                 {Network::wifiBursts, 90, 0.8, 95},
                                 {Network::lteHandover, 110, 1.8, 94},
                                 {Network::fastSender, 85, 0.05, 98},
                                 {Network::slowSender, 85, 0.05, 97}};
    for (const Bound &bound : kBounds) {
        SCOPED_TRACE(static_cast<int>(bound.network));
        const auto arrivals = Arrivals(bound.network, 3000);
        const NetworkResult adaptive = PlayOver(arrivals, Buffer(AIPLC_JITTER_ADAPTIVE, 0));
        EXPECT_LE(adaptive.delayMs, bound.delayMs);
        EXPECT_LE(adaptive.lateLostPercent, bound.lateLostPercent);
        EXPECT_GE(adaptive.onTimePercent, bound.onTimePercent);
        // The adaptive buffer has no more delay than the network asks for.
        const NetworkResult fixed = PlayOver(arrivals, Buffer(AIPLC_JITTER_FIXED, 80));
        EXPECT_GT(fixed.delayMs, adaptive.delayMs + 20);
    }
}

// Ten minutes at 200 ppm are 120 ms: without correction a fixed buffer would run dry, or its delay
// would have grown by as much.
TEST(JitterBuffer, FollowsTheClockOfTheSender) {
    const NetworkResult fast =
        PlayOver(Arrivals(Network::fastSender, 30000), Buffer(AIPLC_JITTER_FIXED, 40));
    EXPECT_NEAR(fast.removedMs - fast.insertedMs, 120, 25);
    EXPECT_NEAR(fast.delayMs, 100, 15);
    const NetworkResult slow =
        PlayOver(Arrivals(Network::slowSender, 30000), Buffer(AIPLC_JITTER_FIXED, 40));
    EXPECT_NEAR(slow.insertedMs - slow.removedMs, 120, 25);
    EXPECT_NEAR(slow.delayMs, 100, 15);
    EXPECT_EQ(slow.lateLostPercent, 0);
}

TEST(JitterBuffer, KeepsItsLimitsAndCountsWhatIsDue) {
    const auto steady = Arrivals(Network::lan, 1000);
    const NetworkResult least = PlayOver(steady, Buffer(AIPLC_JITTER_ADAPTIVE, 120));
    EXPECT_NEAR(least.delayMs, 180, 12);
    const NetworkResult most =
        PlayOver(Arrivals(Network::lteHandover, 1000), Buffer(AIPLC_JITTER_ADAPTIVE, 0, 10));
    EXPECT_LT(most.delayMs, 85);
    // All but the last packets, which are still in the look-ahead, were played and counted.
    const auto &counted = least.statistics;
    EXPECT_GT(counted.jitterBufferEmittedCount, 320U * 980);
    EXPECT_LE(counted.jitterBufferEmittedCount, 320U * 1000);
    EXPECT_NEAR(
        counted.jitterBufferTargetDelay / static_cast<double>(counted.jitterBufferEmittedCount),
        0.180, 1e-9);
}

// The network stands still for three seconds, then all that was held up comes at once; later the
// delay falls for good. The delay must come back down, and playing must go on.
TEST(JitterBuffer, RecoversFromAStandstill) {
    auto arrivals = Arrivals(Network::lan, 3000);
    for (size_t i = 500; i < 650; ++i)
        arrivals[i] = arrivals[650];
    for (size_t i = 1500; i < 2000; ++i)
        arrivals[i] += 200'000;
    const NetworkResult result = PlayOver(arrivals, Buffer(AIPLC_JITTER_ADAPTIVE, 0));
    // Lost are the packets of the standstill, and some of those behind the step of 200 ms.
    EXPECT_LE(result.statistics.packetsDiscarded, 150U + 40U);
    EXPECT_LE(result.statistics.timelineRestarts, 3U);
    // A sixth of the call was 200 ms later than the rest.
    EXPECT_LT(result.delayMs, 75 + 200 / 6 + 75);
}

// A period of 100 samples repeats itself: with whole periods more or less the sound is the same.
TEST(TimeStretch, ChangesPeriodicSoundByWholePeriods) {
    TimeStretch stretch(16000);
    std::mt19937 random(5);
    std::vector<int16_t> frame(320);
    for (size_t i = 0; i < frame.size(); ++i)
        frame[i] = i < 100 ? static_cast<int16_t>(random() % 20000) : frame[i - 100];
    for (int16_t &sample : frame)
        sample = static_cast<int16_t>(sample - 10000);
    for (const auto change : {TimeStretch::Change::shorten, TimeStretch::Change::lengthen}) {
        const auto changed = stretch.Process(frame, change, 160);
        ASSERT_EQ(changed.size(), change == TimeStretch::Change::shorten ? 220U : 420U);
        for (size_t i = 0; i < changed.size(); ++i)
            ASSERT_EQ(changed[i], frame[i % 100]) << i;
    }
    EXPECT_EQ(stretch.Process(frame, TimeStretch::Change::shorten, 90).size(), 320U);
}

TEST(TimeStretch, LeavesLoudSoundWithoutAPeriodAlone) {
    TimeStretch stretch(16000);
    std::mt19937 random(3);
    std::vector<int16_t> loud(320);
    for (int16_t &sample : loud)
        sample = static_cast<int16_t>(static_cast<int32_t>(random() % 20001) - 10000);
    std::vector<int16_t> quiet(loud);
    for (int16_t &sample : quiet)
        sample = static_cast<int16_t>(sample / 100);
    EXPECT_EQ(stretch.Process(loud, TimeStretch::Change::lengthen, 160).size(), 320U);
    EXPECT_EQ(stretch.Process(quiet, TimeStretch::Change::lengthen, 160).size(), 480U);
    EXPECT_EQ(stretch.Process(quiet, TimeStretch::Change::none, 160).data(), quiet.data());
}

}  // namespace
}  // namespace aiplc::receiver
