// SPDX-License-Identifier: BSD-2-Clause
//
// Redundant audio (RFC 2198): its format, and calls that lose packets whose copies arrive.

#include "host/redundant_audio.h"
#include "tests/host/call.h"

namespace aiplc::host {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kOpus = 111;
constexpr int kRed = 63;

TEST(RedundantAudio, HasItsFieldsWhereTheRfcPutsThem) {
    // 1, payload type 111 | offset 960 in 14 bits, length 3 in 10 bits | 0, payload type 111.
    const Bytes bytes = {0xEF, 0x0F, 0x00, 0x03, 0x6F, 1, 2, 3, 4, 5};
    const RtpPacket packet{.payload = {4, 5}, .copies = {{960, {1, 2, 3}}}};
    EXPECT_EQ(WriteRedundantAudio(packet, kOpus), bytes);
    const RtpPacket largest{.payload = {7}, .copies = {{16383, Bytes(1023, 6)}, {1, {8}}}};
    for (const RtpPacket &written : {packet, largest}) {
        const Bytes payload = WriteRedundantAudio(written, kOpus);
        const auto read = ParseRedundantAudio(payload, -1, kRed);
        ASSERT_TRUE(read);
        RtpPacket taken;
        TakeBlocks(*read, taken);
        EXPECT_EQ(taken.payload, written.payload);
        ASSERT_EQ(taken.copies.size(), written.copies.size());
        EXPECT_EQ(taken.copies[0].timestampOffset, written.copies[0].timestampOffset);
        EXPECT_EQ(taken.copies[0].payload, written.copies[0].payload);
    }
}

TEST(RedundantAudio, OfOtherTypesOrWithLengthsThatDoNotAddUpIsRefused) {
    const Bytes whole = {0xEF, 0x0F, 0x00, 0x03, 0x6F, 1, 2, 3};
    EXPECT_TRUE(ParseRedundantAudio(whole, kOpus, kRed));
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(ParseRedundantAudio({whole.data(), size}, -1, kRed)) << size;
    EXPECT_FALSE(ParseRedundantAudio(whole, 96, kRed));
    EXPECT_FALSE(ParseRedundantAudio(whole, -1, kOpus));  // redundant audio within itself
    EXPECT_FALSE(ParseRedundantAudio(Bytes{0xBF, 0, 0, 0, 0x6F}, kOpus, kRed));  // the same
    // Comfort noise beside Opus, and a copy without a byte, are no copies of Opus.
    const Bytes mixed = {0x8D, 0, 0, 1, 0xEF, 0x0F, 0, 0, 0x6F, 9, 4};
    const auto read = ParseRedundantAudio(mixed, kOpus, kRed);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->copies.empty());
    EXPECT_EQ(Bytes(read->primary.begin(), read->primary.end()), Bytes{4});
}

TEST(RedundantAudio, LeavesOutCopiesThatItsHeaderCannotDescribe) {
    // 60 ms at 250 kbit/s have 1875 bytes.
    for (const RtpPacket &packet :
         Speech({.bitrate = 250000, .packetMs = 60, .redundancy = 2}, 1)) {
        EXPECT_GT(packet.payload.size(), 1023U);
        EXPECT_TRUE(packet.copies.empty());
    }
    const Packets packets = Speech({.packetMs = 60, .redundancy = 4}, 0.6);
    ASSERT_EQ(packets.back().copies.size(), 4U);
    EXPECT_EQ(packets.back().copies.front().timestampOffset, 4 * 2880);
    EXPECT_EQ(packets.back().copies.front().payload, packets[packets.size() - 5].payload);
}

TEST(Redundancy, BurstsWithinItsReachLeaveNoTrace) {
    for (const auto &[rate, packetMs, burst] : {std::tuple(16000, 20, 3U),
                                                {48000, 20, 3U},
                                                {16000, 20, 1U},
                                                {16000, 10, 4U},
                                                {16000, 40, 1U}}) {
        SenderOptions sender{.sampleRate = static_cast<uint32_t>(rate), .packetMs = packetMs};
        sender.redundancy = static_cast<int>(burst);
        sender.firstSequenceNumber = 65530;
        sender.firstTimestamp = 0xFFFFF000;
        const Packets packets = Speech(sender, 1.2);
        std::vector<size_t> lost;
        for (size_t first = 3; first + burst < packets.size(); first += 2 * burst + 1)
            for (size_t i = 0; i < burst; ++i)
                lost.push_back(first + i);
        const ReceiverOptions options = NoWorker(sender.sampleRate);
        const PlayedCall whole(packets, options);
        const PlayedCall call(packets, options, Losing(lost));
        EXPECT_EQ(call.pcm, whole.pcm) << rate << " " << packetMs;
        EXPECT_EQ(call.sources.find_first_not_of("dr"), std::string::npos) << call.sources;
        EXPECT_EQ(call.statistics.framesBySource[AIPLC_SOURCE_REDUNDANT],
                  std::ranges::count(call.sources, 'r'));
        EXPECT_EQ(call.statistics.packetsLost, static_cast<int64_t>(lost.size()));
        EXPECT_EQ(call.statistics.packetsDiscarded, 0U);
        EXPECT_EQ(call.statistics.redundantBlocksUsed, lost.size());
        EXPECT_EQ(whole.statistics.redundantBlocksUsed, 0U);
    }
}

TEST(Redundancy, GivesWayToThePacketItselfAndOutranksFec) {
    const Packets packets =
        Speech({.sampleRate = 16000, .fec = true, .expectedLossPercent = 20, .redundancy = 1}, 1.2);
    const PlayedCall whole(packets, NoWorker(16000));
    // 20 is lost, 30 comes after its copy, 40 and 41 are lost and only 41 is repeated in time.
    const Arrival arrival = [](size_t i, int64_t due) -> std::optional<int64_t> {
        if (i == 20 || i == 40 || i == 41) return std::nullopt;
        return i == 30 ? due + 2 : due;
    };
    const PlayedCall call(packets, NoWorker(16000), arrival);
    EXPECT_EQ(call.sources.substr(19, 3), "drd");
    EXPECT_EQ(call.sources.substr(29, 3), "dld");
    // The copy of 41 carries FEC for 40.
    EXPECT_EQ(call.sources.substr(39, 4), "dfrd");
    EXPECT_TRUE(std::equal(&call.pcm[0], &call.pcm[40 * 320], &whole.pcm[0]));
    EXPECT_EQ(call.statistics.packetsLost, 3);
    EXPECT_EQ(call.statistics.packetsDiscarded + call.statistics.packetsDuplicated, 0U);
    // A packet that comes when its copy has been played was received all the same.
    const PlayedCall late(packets, NoWorker(16000), Losing({}, 30, 30, 4));
    EXPECT_EQ(late.sources.substr(29, 3), "drd");
    EXPECT_EQ(late.statistics.packetsLost, 0);
    EXPECT_EQ(late.statistics.packetsDiscarded, 1U);
}

TEST(Redundancy, KeepsPausesAndDoesNotDelayTheCallsBegin) {
    Pcm pcm = SpeechLike(16000, 3);
    std::fill(pcm.begin() + 16000, pcm.begin() + 32000, int16_t{0});
    const Packets packets = Encode({.sampleRate = 16000, .redundancy = 3, .dtx = true}, pcm);
    const PlayedCall whole(packets, NoWorker(16000));
    ASSERT_GT(whole.statistics.framesBySource[AIPLC_SOURCE_DTX], 20U);
    // The packets around each gap in the timestamps, but the one that announces the pause.
    std::vector<size_t> lost;
    for (size_t i = 4; i + 3 < packets.size(); ++i) {
        const bool resumes = packets[i].timestamp - packets[i - 1].timestamp > 960;
        if (resumes && packets[i + 1].timestamp - packets[i].timestamp == 960) lost.push_back(i);
        if (packets[i].payload.size() <= 2 && packets[i - 1].payload.size() > 2)
            lost.push_back(i - 1);
    }
    ASSERT_GT(lost.size(), 1U);
    const PlayedCall call(packets, NoWorker(16000), Losing(lost));
    EXPECT_EQ(call.pcm, whole.pcm) << call.sources;
    EXPECT_EQ(call.statistics.concealedSamples, 0U);
    // A receiver that joins the call at packet 5 begins with it, not with the copies in it.
    const Packets joined(packets.begin() + 5, packets.end());
    EXPECT_EQ(PlayedCall(joined, NoWorker(16000)).sources, whole.sources.substr(5));
}

}  // namespace
}  // namespace aiplc::host
