// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "host/packet_buffer.h"
#include "tests/host/call.h"

namespace aiplc::host {
namespace {

const ReceiverOptions kOptions{.sampleRate = 16000, .useWorker = false};

std::optional<int64_t> ByIndex(size_t index, int64_t /*due*/) {
    return index;
}

RtpPacket Spoilt(RtpPacket packet, std::mt19937 &random) {
    const auto any = static_cast<uint32_t>(random());
    const auto fault = random() % 8;  // 6 and 7: none
    if (fault == 0) packet.payload.resize(any % 3);
    if (fault == 1) packet.payload.assign(4000, static_cast<uint8_t>(any));
    if (fault == 2) packet.payload[0] = static_cast<uint8_t>(any);
    if (fault == 3) packet.timestamp += any % 20000;
    if (fault == 4) packet.timestamp += 0x80000000U - 10 + any % 20;
    if (fault == 5) packet.sequenceNumber = static_cast<uint16_t>(any);
    return packet;
}

TEST(Hostile, AnyPacketsGiveOneFrameEachTick) {
    const std::vector<RtpPacket> call =
        Encode({.sampleRate = 16000, .packetMs = 60, .fec = true, .expectedLossPercent = 20},
               SpeechLike(16000, 6));
    for (const uint32_t rate : {16000U, 48000U}) {
        Receiver receiver({.sampleRate = rate, .useWorker = false});
        std::mt19937 random(7);
        for (uint32_t tick = 0; tick < 600; ++tick) {
            for (auto i = random() % 4; i > 0; --i)
                receiver.Push(Spoilt(call[(tick / 3 + random() % 4) % call.size()], random));
            ASSERT_EQ(receiver.Pull().samples.size(), rate / 50);
        }
        const Statistics &counted = receiver.GetStatistics();
        EXPECT_GT(counted.packetsUndecodable, 0U);
        EXPECT_GT(counted.Frames(FrameSource::decoded), 100U);
    }
}

TEST(Hostile, AFloodIsBounded) {
    Receiver farAhead(kOptions);
    Receiver crowded(kOptions);
    for (uint32_t i = 0; i < 3000; ++i) {
        farAhead.Push({static_cast<uint16_t>(i), i * 960, {31 << 3, 1, 2}});
        crowded.Push({static_cast<uint16_t>(i), i * 120, {31 << 3, 1, 2}});
    }
    // 10 s are kept, 0 to 500 frames ahead of the one that is due.
    EXPECT_EQ(farAhead.GetStatistics().packetsDiscarded, 3000U - 501);
    EXPECT_EQ(crowded.GetStatistics().packetsDiscarded, 3000 - PacketBuffer::kCapacity);
}

TEST(Hostile, UndecodableAndStrayPacketsAreLostOnes) {
    auto packets = Encode({.sampleRate = 16000}, SpeechLike(16000, 1));
    packets[20].payload.clear();
    packets[30].payload.assign(4000, 0xFF);
    packets[40].timestamp += 0x80000000U;
    const PlayedCall call = Play(packets, kOptions, ByIndex);
    EXPECT_EQ(call.statistics.packetsUndecodable, 2U);
    EXPECT_EQ(call.statistics.packetsDiscarded, 1U);
    EXPECT_EQ(call.statistics.timelineRestarts, 0U);
    std::string expected(50, 'd');
    expected[20] = expected[30] = expected[40] = 'c';
    EXPECT_EQ(call.Sources(), expected);
}

TEST(Hostile, ARestartedOrSlowClockIsFollowed) {
    auto packets = Encode({.sampleRate = 16000}, SpeechLike(16000, 4));
    // From packet 100 on everything comes 200 ms late, for good.
    const PlayedCall slow = Play(packets, kOptions, [](size_t index, int64_t due) {
        return std::optional(index < 100 ? due : due + 10);
    });
    EXPECT_EQ(slow.statistics.timelineRestarts, 1U);
    EXPECT_EQ(slow.Sources().substr(0, 100), std::string(100, 'd'));
    EXPECT_EQ(slow.Sources().substr(140), std::string(60, 'd'));

    // The sender restarts at packet 100 with other numbers; its first packet only announces that.
    for (size_t i = 100; i < packets.size(); ++i) {
        packets[i].timestamp += 0x70000000;
        packets[i].sequenceNumber = static_cast<uint16_t>(packets[i].sequenceNumber + 20000);
    }
    const PlayedCall restarted = Play(packets, kOptions, ByIndex, 200);
    EXPECT_EQ(restarted.statistics.timelineRestarts, 1U);
    EXPECT_EQ(restarted.Sources(), std::string(100, 'd') + "c" + std::string(99, 'd'));
}

TEST(Hostile, OptionsOutOfRangeAreRefused) {
    EXPECT_THROW(Receiver({.sampleRate = 8000}), std::runtime_error);
    EXPECT_THROW(Receiver({.decoderComplexity = 11}), std::runtime_error);
    EXPECT_THROW(Sender({.packetMs = 30}), std::runtime_error);
}

}  // namespace
}  // namespace aiplc::host
