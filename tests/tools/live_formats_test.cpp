// SPDX-License-Identifier: BSD-2-Clause
//
// The formats of live calls, by their bytes, and the order in which packets leave.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/tools/test_files.h"
#include "tools/live/departures.h"
#include "tools/live/rtcp.h"
#include "tools/live/session_description.h"
#include "tools/live/udp_socket.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

TEST(Rtcp, WritesTheBytesOfTheStandardAndReadsThemBack) {
    const ReceptionReport block{.ssrc = 0xA1B2C3D4,
                                .fractionLost = 64,
                                .lost = -2,
                                .highestSequence = 0x0001FFFE,
                                .jitter = 480,
                                .lastSenderReport = 0x11223344,
                                .sinceSenderReport = 0x10000};
    const RtcpReport report{
        .ssrc = 0x01020304, .sender = std::nullopt, .blocks = {block}, .bye = true};
    const Bytes bytes = RtcpBytes(report, "ab");
    // RFC 3550, 6.4.2, 6.5 and 6.6.
    const Bytes expected =
        Join({Big(0x81C90007, 4), Big(0x01020304, 4), Big(0xA1B2C3D4, 4), Big(0x40FFFFFE, 4),
              Big(0x0001FFFE, 4), Big(480, 4), Big(0x11223344, 4), Big(0x10000, 4),   // report
              Big(0x81CA0003, 4), Big(0x01020304, 4), Big(0x01026162, 4), Big(0, 4),  // name
              Big(0x81CB0001, 4), Big(0x01020304, 4)});                               // goodbye
    EXPECT_EQ(bytes, expected);
    const auto read = ParseRtcp(bytes);
    ASSERT_TRUE(read && read->blocks.size() == 1);
    EXPECT_TRUE(read->bye);
    EXPECT_EQ(read->blocks[0].lost, -2);
    EXPECT_EQ(read->blocks[0].highestSequence, 0x1FFFEU);
    // Cut off anywhere, and with lengths that promise more.
    for (size_t size = 0; size < bytes.size(); ++size)
        (void)ParseRtcp(std::span(bytes).first(size));
    EXPECT_TRUE(ParseRtcp(Big(0x9FC8FFFF, 4))->blocks.empty());
    EXPECT_FALSE(ParseRtcp(Big(0x80000007, 4)));
}

TEST(SessionDescription, FindsTheOpusStream) {
    const std::string text =
        "v=0\r\nc=IN IP4 192.0.2.1/127\r\nm=video 4000 RTP/AVP 96\r\na=rtpmap:96 VP8/90000\r\n"
        "m=audio 5004 RTP/AVP 0 97\r\nc=IN IP6 ff15::101\r\na=rtpmap:0 PCMU/8000\r\n"
        "a=rtpmap:97 OPUS/48000/2\r\na=rtpmap:63 red/48000/2\r\na=rtcp:5010 IN IP4 "
        "192.0.2.1\r\na=rtcp-mux\r\n";
    const SessionDescription session = ParseSessionDescription(text, "a.sdp");
    EXPECT_EQ(session.host, "ff15::101");
    EXPECT_EQ(session.port, 5004);
    EXPECT_EQ(session.payloadType, 97);
    EXPECT_EQ(session.redPayloadType, 63);
    EXPECT_EQ(session.rtcpPort, 5010);
    EXPECT_TRUE(session.rtcpMux);
    const SessionDescription again =
        ParseSessionDescription(SessionDescriptionText(session, true), "b");
    EXPECT_EQ(again.redPayloadType, 63);
    EXPECT_EQ(again.host + std::to_string(again.port * again.payloadType),
              session.host + std::to_string(5004 * 97));
    for (const std::string wrong :
         {"", "m=audio 5004 RTP/AVP 0", "m=audio 99999 RTP/AVP 97\na=rtpmap:97 opus/48000/2",
          "m=audio 5004 RTP/SAVPF 97\na=rtpmap:97 opus/48000/2",
          "m=audio 5004 RTP/AVP 97\na=rtpmap:200 opus/48000/2"})
        EXPECT_THROW((void)ParseSessionDescription(wrong, "a.sdp"), Failure) << wrong;
}

TEST(Address, TakesHostsAndPortsApart) {
    using Place = std::pair<std::string, uint16_t>;
    EXPECT_EQ(ParseHostPort("5004"), (Place{"", 5004}));
    EXPECT_EQ(ParseHostPort("host.example:1"), (Place{"host.example", 1}));
    EXPECT_EQ(ParseHostPort("[2001:db8::1]:65535"), (Place{"2001:db8::1", 65535}));
    for (const char *wrong : {"", ":5004", "65536", "call.sdp", "::1:5004", "h:", "h:5x", "a/b:1"})
        EXPECT_FALSE(ParseHostPort(wrong)) << wrong;
    EXPECT_EQ(Resolve("::ffff:192.0.2.1", 7).Text(), "192.0.2.1:7");
    EXPECT_EQ(Resolve("2001:db8::1", 7).Text(), "[2001:db8::1]:7");
}

TEST(Departures, DelaysWithinBoundsAndKeepsTheRest) {
    OpusCall call;
    for (uint32_t i = 0; i < 1000; ++i)
        call.packets.push_back({{1}, static_cast<uint16_t>(i), i * 960, 0});
    std::vector<bool> lost(1000);
    lost[10] = lost[11] = true;
    std::mt19937_64 random(1);
    const auto plain = Departures(call, lost, {}, random);
    ASSERT_EQ(plain.size(), 998U);
    for (const Departure &departure : plain)
        ASSERT_EQ(departure.atUs, static_cast<int64_t>(departure.packet) * 20000);

    const auto jittered = Departures(call, lost, {.jitterMs = 50}, random);
    ASSERT_EQ(jittered.size(), 998U);
    EXPECT_TRUE(std::ranges::is_sorted(jittered, {}, &Departure::packet));
    int64_t sum = 0;
    for (const Departure &departure : jittered) {
        const int64_t delay = departure.atUs - static_cast<int64_t>(departure.packet) * 20000;
        ASSERT_TRUE(delay >= 0 && delay <= 50000);
        sum += delay;
    }
    EXPECT_GT(sum, 998 * 25000);  // those that wait for one before them add to the mean

    const auto other =
        Departures(call, lost, {.reorderPercent = 10, .duplicatePercent = 10}, random);
    EXPECT_NEAR(static_cast<double>(other.size()), 998 * 1.1, 30);
    size_t overtaken = 0;
    for (size_t i = 1; i < other.size(); ++i)
        overtaken += other[i].packet < other[i - 1].packet ? 1U : 0U;
    EXPECT_NEAR(static_cast<double>(overtaken), 100, 40);
}

}  // namespace
}  // namespace aiplc::tools
