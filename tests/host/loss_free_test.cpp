// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "tests/host/call.h"

namespace aiplc::host {
namespace {

constexpr ptrdiff_t kBankDelay = 44;  // samples at 48 kHz, of the library's filter bank

TEST(LossFree, PlaysExactlyWhatTheDecoderGivesAt16K) {
    for (const int packetMs : {10, 20, 40, 60}) {
        const auto packets = Encode({.sampleRate = 16000,
                                     .packetMs = packetMs,
                                     .firstSequenceNumber = 65530,
                                     .firstTimestamp = 0xFFFFF000},
                                    SpeechLike(16000, 1.2));
        const PlayedCall call =
            Play(packets, {.sampleRate = 16000, .useWorker = false}, InTime(), 60);
        EXPECT_EQ(call.Sources(), std::string(60, 'd')) << packetMs;
        EXPECT_EQ(call.pcm, DecodeAll(packets, 16000)) << packetMs;
    }
}

TEST(LossFree, PlaysTheFilterBanksRenderingAt48K) {
    // Wideband: no energy at the band edges, where the bank's ripple lies.
    const auto packets =
        Encode({.sampleRate = 48000, .maxBandwidth = 1103}, SpeechLike(48000, 1.2));
    const PlayedCall call = Play(packets, {.sampleRate = 48000, .useWorker = false}, InTime());
    const std::vector<int16_t> decoded = DecodeAll(packets, 48000);
    ASSERT_EQ(call.pcm.size(), decoded.size());
    double error = 0;
    double energy = 0;
    for (size_t i = kBankDelay; i < decoded.size(); ++i) {
        const double sample = decoded[i - kBankDelay];
        error += (call.pcm[i] - sample) * (call.pcm[i] - sample);
        energy += sample * sample;
    }
    // The bank returns a constant of 10000 as 9346 at the least, an error of 6.54 %.
    EXPECT_LT(error, energy * 0.0654 * 0.0654);
    EXPECT_GT(energy, 1e9);
    EXPECT_EQ(call.Sources(), std::string(60, 'd'));
}

TEST(LossFree, OrderAndRepetitionDoNotMatter) {
    for (const uint32_t rate : {16000U, 48000U}) {
        auto packets = Encode({.sampleRate = rate}, SpeechLike(rate, 1));
        const ReceiverOptions options{.sampleRate = rate, .useWorker = false};
        const PlayedCall inOrder = Play(packets, options, InTime());
        std::swap(packets[20], packets[22]);
        packets.insert(packets.begin() + 31, packets[30]);
        const PlayedCall call = Play(
            packets, options,
            [](size_t index, int64_t) {
                return std::optional(std::max<int64_t>(static_cast<int64_t>(index) - 3, 0));
            },
            50);
        EXPECT_EQ(call.pcm, inOrder.pcm);
        EXPECT_EQ(call.statistics.packetsDuplicated, 1U);
        EXPECT_EQ(call.statistics.packetsDiscarded, 0U);
    }
}

TEST(LossFree, PausesAreSentAsOnePacketAndAreNoLosses) {
    for (const uint32_t rate : {16000U, 48000U}) {
        std::vector<int16_t> pcm = SpeechLike(rate, 1);
        pcm.resize(size_t{3} * rate);
        std::copy_n(pcm.begin(), rate, pcm.end() - rate);
        const auto packets = Encode({.sampleRate = rate, .dtx = true}, pcm);
        size_t pauses = 0;
        for (size_t i = 1; i < packets.size(); ++i) {
            const RtpPacket &packet = packets[i];
            EXPECT_EQ(packet.sequenceNumber, packets[i - 1].sequenceNumber + 1);
            const uint32_t frames = (packet.timestamp - packets[i - 1].timestamp) / 960;
            const bool pause = packets[i - 1].payload.size() <= 2;
            pauses += pause ? 1 : 0;
            // libopus refreshes the noise at the latest every 400 ms.
            EXPECT_TRUE(pause ? frames > 1 && frames <= 21 : frames == 1) << i;
            EXPECT_FALSE(pause && packet.payload.size() <= 2) << i;
        }
        EXPECT_GE(pauses, 2U);
        const PlayedCall call = Play(packets, {.sampleRate = rate, .useWorker = false}, InTime());
        EXPECT_EQ(call.statistics.concealmentEvents, 0U);
        EXPECT_EQ(call.statistics.packetsLost, 0);
        EXPECT_GE(call.statistics.Frames(FrameSource::dtx), 150 - packets.size());
        EXPECT_EQ(call.Sources().find_first_not_of("dx"), std::string::npos);
    }
}

// A sender that stops without a word: the pause shows when the next packet comes.
TEST(LossFree, APauseThatShowsLateIsNotConcealedWhereItCanStillBeChanged) {
    auto packets = Encode({.sampleRate = 16000}, SpeechLike(16000, 1));
    packets.erase(packets.begin() + 10, packets.begin() + 12);
    for (size_t i = 10; i < packets.size(); ++i)
        packets[i].sequenceNumber = static_cast<uint16_t>(packets[i].sequenceNumber - 2);
    const PlayedCall call = Play(packets, {.sampleRate = 16000, .useWorker = false}, InTime());
    EXPECT_EQ(call.Sources().substr(8, 6), "ddxxdd");
    EXPECT_EQ(call.statistics.concealedSamples, 0U);
}

}  // namespace
}  // namespace aiplc::host
