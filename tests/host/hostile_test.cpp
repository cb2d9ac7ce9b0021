// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <stdexcept>

#include "host/packet_buffer.h"
#include "tests/host/call.h"

namespace aiplc::host {
namespace {

const ReceiverOptions kOptions{.sampleRate = 16000, .useWorker = false};

class Dice {
  public:
    uint32_t Roll(uint32_t sides) {
        m_state = m_state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<uint32_t>(m_state >> 33) % sides;
    }

  private:
    uint64_t m_state = 7;
};

TEST(Hostile, AnyPacketsGiveOneFrameEachTick) {
    const std::vector<RtpPacket> call =
        Encode({.sampleRate = 16000, .packetMs = 60, .fec = true, .expectedLossPercent = 20},
               SpeechLike(16000, 6));
    for (const uint32_t rate : {16000U, 48000U}) {
        Receiver receiver({.sampleRate = rate, .useWorker = false});
        Dice dice;
        for (uint32_t tick = 0; tick < 600; ++tick) {
            for (uint32_t i = dice.Roll(4); i > 0; --i) {
                RtpPacket packet = call[(tick / 3 + dice.Roll(4)) % call.size()];
                switch (dice.Roll(8)) {
                    case 0:
                        packet.payload.resize(dice.Roll(3));
                        break;
                    case 1:
                        packet.payload.assign(4000, static_cast<uint8_t>(dice.Roll(256)));
                        break;
                    case 2:
                        packet.payload[0] = static_cast<uint8_t>(dice.Roll(256));
                        break;
                    case 3:
                        packet.timestamp += dice.Roll(20000);
                        break;
                    case 4:
                        packet.timestamp += 0x80000000U - 10 + dice.Roll(20);
                        break;
                    case 5:
                        packet.sequenceNumber = static_cast<uint16_t>(dice.Roll(65536));
                        break;
                    default:
                        break;
                }
                receiver.Push(packet);
            }
            ASSERT_EQ(receiver.Pull().samples.size(), rate / 50);
        }
        const Statistics &counted = receiver.GetStatistics();
        EXPECT_GT(counted.packetsUndecodable, 0U);
        EXPECT_GT(counted.Frames(FrameSource::decoded), 100U);
    }
}

TEST(Hostile, AFloodIsBounded) {
    const auto packets = Encode({.sampleRate = 16000}, SpeechLike(16000, 40));
    Receiver receiver(kOptions);
    for (const RtpPacket &packet : packets)
        receiver.Push(packet);
    // Nothing is played yet: what lies past 10 s is refused, and so is what the buffer cannot hold.
    EXPECT_EQ(receiver.GetStatistics().packetsDiscarded, packets.size() - 501);
    Receiver small(kOptions);
    for (uint32_t i = 0; i < 3000; ++i)
        small.Push({static_cast<uint16_t>(i), i * 120, {31 << 3, 1, 2}});
    EXPECT_EQ(small.GetStatistics().packetsDiscarded, 3000 - PacketBuffer::kCapacity);
}

TEST(Hostile, AnUndecodablePacketIsALostOne) {
    auto packets = Encode({.sampleRate = 16000}, SpeechLike(16000, 1));
    packets[20].payload.clear();
    packets[30].payload.assign(4000, 0xFF);
    const PlayedCall call = Play(packets, kOptions, InTime());
    EXPECT_EQ(call.statistics.packetsUndecodable, 2U);
    EXPECT_EQ(call.sources[20], FrameSource::codec);
    EXPECT_EQ(call.sources[30], FrameSource::codec);
    EXPECT_EQ(call.statistics.packetsLost, 0);
}

TEST(Hostile, ARestartedOrSlowClockIsFollowed) {
    auto packets = Encode({.sampleRate = 16000}, SpeechLike(16000, 4));
    // The sender restarts at packet 100 with other numbers; its first packet only announces that.
    for (size_t i = 100; i < packets.size(); ++i) {
        packets[i].timestamp += 0x70000000;
        packets[i].sequenceNumber = static_cast<uint16_t>(packets[i].sequenceNumber + 20000);
    }
    const auto byIndex = [](size_t index, int64_t) {
        return std::optional(static_cast<int64_t>(index));
    };
    const PlayedCall restarted = Play(packets, kOptions, byIndex, 200);
    EXPECT_EQ(restarted.statistics.timelineRestarts, 1U);
    EXPECT_EQ(restarted.Sources(), std::string(100, 'd') + "c" + std::string(99, 'd'));

    // From packet 100 on everything comes 200 ms late, for good.
    const auto steady = Encode({.sampleRate = 16000}, SpeechLike(16000, 4));
    const PlayedCall slow = Play(steady, kOptions, [](size_t index, int64_t due) {
        return std::optional(index < 100 ? due : due + 10);
    });
    EXPECT_EQ(slow.statistics.timelineRestarts, 1U);
    EXPECT_EQ(slow.Sources().substr(0, 100), std::string(100, 'd'));
    EXPECT_EQ(slow.Sources().substr(140), std::string(60, 'd'));
}

TEST(Hostile, OptionsOutOfRangeAreNamed) {
    EXPECT_THROW(
        try { Receiver receiver({.sampleRate = 8000}); } catch (const std::runtime_error &error) {
            EXPECT_STREQ(error.what(), "sample rate is 8000 Hz, must be 16000 or 48000");
            throw;
        },
        std::runtime_error);
    EXPECT_THROW(Receiver({.sampleRate = 16000, .decoderComplexity = 11}), std::runtime_error);
}

}  // namespace
}  // namespace aiplc::host
