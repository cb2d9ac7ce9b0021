// SPDX-License-Identifier: BSD-2-Clause

#include "host/opus_packet.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/host/call.h"

namespace aiplc::host {
namespace {

size_t CountRedundancy(const std::vector<RtpPacket> &packets) {
    return static_cast<size_t>(std::ranges::count_if(packets, [](const RtpPacket &packet) {
        return ParseOpusPacket(packet.payload)->redundancy;
    }));
}

TEST(OpusPacket, FindsTheRedundancyThatAnEncoderWrites) {
    for (const int packetMs : {10, 20, 40, 60}) {
        SenderOptions options{.sampleRate = 16000, .packetMs = packetMs};
        const std::vector<int16_t> pcm = SpeechLike(16000, 1.2);
        EXPECT_EQ(CountRedundancy(Encode(options, pcm)), 0U) << packetMs;
        options.fec = true;
        options.expectedLossPercent = 20;
        const std::vector<RtpPacket> packets = Encode(options, pcm);
        // The first packet has nothing to repeat and pauses are not worth it; speech is.
        EXPECT_FALSE(ParseOpusPacket(packets[0].payload)->redundancy);
        EXPECT_GT(CountRedundancy(packets), packets.size() / 2) << packetMs;
    }
}

TEST(OpusPacket, ReadsFlagsWhereTheRfcPutsThem) {
    struct Case {
        uint8_t toc, flags;
        int32_t duration;
        bool redundancy;
    };
    // TOC: configuration << 3 | stereo << 2 | code. SILK WB: 8 = 10 ms, 9 = 20, 10 = 40, 11 = 60;
    // 15 = hybrid FB 20 ms; 31 = CELT FB 20 ms.
    const Case cases[] = {
        {9 << 3, 0x40, 960, true},        // V L
        {9 << 3, 0xBF, 960, false},       //
        {8 << 3, 0x40, 480, true},        // V L
        {10 << 3, 0x20, 1920, true},      // V V L
        {11 << 3, 0x10, 2880, true},      // V V V L
        {11 << 3, 0xEF, 2880, false},     //
        {9 << 3 | 4, 0x10, 960, true},    // V L, V L: the side channel's
        {9 << 3 | 4, 0xAF, 960, false},   //
        {11 << 3 | 4, 0x01, 2880, true},  // V V V L, V V V L
        {15 << 3, 0x40, 960, true},       //
        {31 << 3, 0xFF, 960, false},      // no SILK data
        {9 << 3 | 1, 0x40, 1920, true},   // two frames: the first one's flag
    };
    for (const Case &one : cases) {
        const std::vector<uint8_t> packet = {one.toc, one.flags, 0x12, 0x40, 0x40};
        const auto info = ParseOpusPacket(packet);
        ASSERT_TRUE(info) << int{one.toc};
        EXPECT_EQ(info->duration, one.duration) << int{one.toc};
        EXPECT_EQ(info->redundancy, one.redundancy) << int{one.toc} << " " << int{one.flags};
    }
}

TEST(OpusPacket, RejectsWhatIsNoPacket) {
    EXPECT_FALSE(ParseOpusPacket({}));
    const std::vector<std::vector<uint8_t>> malformed = {
        std::vector<uint8_t>(4000, 0xFF),    // code 3 with 63 frames
        {9 << 3 | 1, 1, 2},                  // two equal frames in 2 bytes + 1
        {9 << 3 | 3, 0},                     // no frame
        std::vector<uint8_t>(1277, 9 << 3),  // a frame of more than 1275 bytes
        std::vector<uint8_t>(kMaxOpusPacketBytes + 1, 9 << 3)};
    for (const std::vector<uint8_t> &packet : malformed)
        EXPECT_EQ(ParseOpusPacket(packet).has_value(), packet.size() == 3) << packet.size();
    const std::vector<uint8_t> pause = {9 << 3};
    ASSERT_TRUE(ParseOpusPacket(pause));
    EXPECT_TRUE(ParseOpusPacket(pause)->pause);
}

}  // namespace
}  // namespace aiplc::host
