// SPDX-License-Identifier: BSD-2-Clause

#include "host/sender.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/host/call.h"

namespace aiplc::host {
namespace {

TEST(Sender, NumbersPacketsAcrossTheWrap) {
    const SenderOptions options{.sampleRate = 16000,
                                .packetMs = 60,
                                .firstSequenceNumber = 65535,
                                .firstTimestamp = 0xFFFFFFF0};
    // 0.1 s: one packet of 60 ms and a started one.
    const std::vector<RtpPacket> packets = Encode(options, SpeechLike(16000, 0.1));
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[1].sequenceNumber, 0);
    EXPECT_EQ(packets[1].timestamp, 2880U - 16);
    EXPECT_EQ(DecodeAll(packets, 16000).size(), 1920U);
}

TEST(Sender, SendsOnePacketAtTheStartOfAPause) {
    std::vector<int16_t> pcm = SpeechLike(16000, 1);
    pcm.resize(pcm.size() + 32000);
    const std::vector<RtpPacket> packets = Encode({.sampleRate = 16000, .dtx = true}, pcm);
    size_t pauses = 0;
    for (size_t i = 1; i < packets.size(); ++i) {
        const RtpPacket &packet = packets[i];
        EXPECT_EQ(packet.sequenceNumber, packets[i - 1].sequenceNumber + 1);
        if (packets[i - 1].payload.size() > 2) {
            EXPECT_EQ(packet.timestamp - packets[i - 1].timestamp, 960U);
            continue;
        }
        ++pauses;
        EXPECT_GT(packet.payload.size(), 2U);
        // libopus refreshes the noise at the latest every 400 ms.
        EXPECT_GT(packet.timestamp - packets[i - 1].timestamp, 960U);
        EXPECT_LE(packet.timestamp - packets[i - 1].timestamp, 21 * 960U);
    }
    EXPECT_GE(pauses, 3U);
}

TEST(Sender, ReportsHowFarDecodedAudioTrails) {
    // libopus's VoIP look-ahead: 2.5 ms of overlap and 4 ms of delay compensation.
    EXPECT_EQ(Sender({.sampleRate = 48000}).LookAhead(), 312);
    EXPECT_EQ(Sender({.sampleRate = 16000}).LookAhead(), 104);
}

TEST(Sender, NamesOptionsOutOfRange) {
    const auto message = [](const SenderOptions &options) -> std::string {
        try {
            const Sender sender(options);
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(message({.sampleRate = 44100}),
              "sample rate is 44100 Hz, must be 8000, 12000, 16000, 24000 or 48000");
    EXPECT_EQ(message({.packetMs = 30}), "packet duration is 30 ms, must be 10, 20, 40 or 60");
    EXPECT_EQ(message({.bitrate = 5}), "bitrate is 5, must be 6000 to 510000");
}

}  // namespace
}  // namespace aiplc::host
