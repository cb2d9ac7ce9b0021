// SPDX-License-Identifier: BSD-2-Clause
//
// Calls that come as packets: bit streams, Ogg Opus, captures.

#include <gmock/gmock.h>
#include <ogg/ogg.h>
#include <pcap/dlt.h>
#include <zlib.h>

#include <algorithm>
#include <random>

#include "tests/tools/capture_files.h"
#include "tests/tools/test_files.h"
#include "tools/conceal/conceal.h"
#include "tools/input/link_layer.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

class RecordedCallTest : public FolderTest {
  protected:
    LoadedCall Load(const Bytes &file, const StreamChoice &stream = {}) {
        InputFile input = InputFile::Open(Write("call", file));
        ConcealOptions options;
        options.stream = stream;
        const InputKind kind = CheckedKind(input, options);
        return LoadCall(input, kind, WithDefaults(options, kind));
    }

    // Plays the call into out.wav.
    ConcealReport Play(const Bytes &file, std::optional<int> jitterBufferMs = {}) {
        ConcealOptions options;
        options.input = Write("call", file);
        options.output = Path("out.wav");
        options.jitterBufferMs = jitterBufferMs;
        options.receiving.predictor = AIPLC_PREDICTOR_NONE;
        options.quiet = true;
        return Conceal(options);
    }

    // Expects Failure for every beginning of first + rest, first itself excepted.
    void ExpectCutsFail(const Bytes &first, const Bytes &rest) {
        const Bytes file = Join({first, rest});
        EXPECT_NO_THROW(Load(first));
        EXPECT_NO_THROW(Load(file));
        for (size_t length = 1; length < file.size(); ++length) {
            if (length == first.size()) continue;
            const Bytes cut(file.begin(), file.begin() + static_cast<long>(length));
            EXPECT_THROW(Load(cut), Failure) << length;
        }
    }
};

// An Opus packet by its table of contents (RFC 6716, 3.1), mono, with the given bytes of coded
// sound. config: 9 and 10 are SILK wideband of 20 and 40 ms, 31 is CELT fullband of 20 ms.
Bytes Packet(size_t soundBytes, uint8_t config = 9) {
    return Join({Big(uint64_t{config} << 3, 1), Bytes(soundBytes, 0x5A)});
}

// One packet of a bit stream, with a final range that nobody looks at.
Bytes Record(const Bytes &packet) {
    return Join({Big(packet.size(), 4), Big(0xDEADBEEF, 4), packet});
}

Bytes Gzip(const Bytes &content) {
    Bytes file(content.size() + 100);
    z_stream stream{};
    deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    stream.next_in = const_cast<Bytef *>(content.data());
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = file.data();
    stream.avail_out = static_cast<uInt>(file.size());
    deflate(&stream, Z_FINISH);
    file.resize(stream.total_out);
    deflateEnd(&stream);
    return file;
}

TEST_F(RecordedCallTest, BitStreamHasPacketsAndLosses) {
    const LoadedCall loaded = Load(Join({Record(Packet(20, 10)), Record({}), Record(Packet(1))}));
    EXPECT_EQ(loaded.source.kind, InputKind::bitStream);
    EXPECT_EQ(loaded.sampleRate, 16000);
    const OpusCall &call = loaded.call;
    ASSERT_EQ(call.packets.size(), 3U);
    EXPECT_EQ(call.packets[0].payload, Packet(20, 10));
    EXPECT_TRUE(call.packets[1].payload.empty());
    // A lost packet lasts as long as the one before it, 40 ms.
    EXPECT_EQ(call.packets[2].timestamp, 3840U);
    EXPECT_EQ(call.packets[2].arrivalUs, 80000);
    EXPECT_EQ(call.samples, 3840 + 960);
    EXPECT_EQ(Load(Join({Record(Packet(20, 31)), Record(Packet(20))})).sampleRate, 48000);
}

TEST_F(RecordedCallTest, BitStreamThatIsNoneIsAnError) {
    const Bytes first = Record(Packet(20));
    ExpectCutsFail(first, Record(Packet(5)));
    const Bytes absurdLength = Join({first, Big(0x7FFFFFFF, 4), Big(0, 4)});
    const Bytes withoutFrameCount = Join({first, Record({0x4B})});  // which code 3 promises
    for (const Bytes &bad : {absurdLength, withoutFrameCount, Record({}), Bytes(500, 0), Bytes(),
                             Text("to whom it may concern")}) {
        EXPECT_THROW(Load(bad), Failure);
    }
}

constexpr uint8_t kFirst = 2;
constexpr uint8_t kLast = 4;

// A page of whole packets, each shorter than 255 bytes; position: of its end, 48 kHz samples.
Bytes Page(uint8_t flags, uint64_t position, uint64_t number, const std::vector<Bytes> &packets) {
    Bytes lengths;
    for (const Bytes &packet : packets)
        lengths.push_back(static_cast<uint8_t>(packet.size()));
    Bytes page =
        Join({Text("OggS"), Big(flags, 2), Little(position, 8), Little(0x1234, 4),
              Little(number, 4), Little(0, 4), Little(packets.size(), 1), lengths, Join(packets)});
    ogg_page whole{page.data(), static_cast<long>(page.size()), nullptr, 0};
    ogg_page_checksum_set(&whole);
    return page;
}

// RFC 7845, section 5.1: version 1, one channel, mapping family 0.
Bytes Head(uint64_t preSkip, int gainQ8 = 0) {
    return Join({Text("OpusHead"), Big(0x0101, 2), Little(preSkip, 2), Little(48000, 4),
                 Little(static_cast<uint16_t>(gainQ8), 2), Little(0, 1)});
}

// The pages in front of the audio.
Bytes Headers(const Bytes &head) {
    const Bytes tags = Join({Text("OpusTags"), Little(0, 8)});
    return Join({Page(kFirst, 0, 0, {head}), Page(0, 0, 1, {tags})});
}

TEST_F(RecordedCallTest, OggOpusHasPreSkipGainAndTrimming) {
    const Bytes begin = Join({Headers(Head(312, -256)), Page(0, 1920, 2, {Packet(20), {}})});
    const LoadedCall loaded = Load(Join({begin, Page(kLast, 2500, 3, {Packet(30)})}));
    EXPECT_EQ(loaded.source.kind, InputKind::oggOpus);
    const OpusCall &call = loaded.call;
    ASSERT_EQ(call.packets.size(), 3U);
    EXPECT_TRUE(call.packets[1].payload.empty());
    EXPECT_EQ(call.packets[2].payload, Packet(30));
    EXPECT_EQ(call.packets[2].timestamp, 1920U);
    EXPECT_EQ(call.span, 2880);
    EXPECT_EQ(call.delaySamples, 312);
    EXPECT_EQ(call.samples, 2500 - 312);
    EXPECT_EQ(call.outputGainQ8, -256);
    // A last position behind the last packet promises nothing that is not there.
    EXPECT_EQ(Load(Join({begin, Page(kLast, 9999, 3, {Packet(30)})})).call.samples, 2880 - 312);
    // Cut from a longer stream, the first position is not 0.
    const Bytes late = Page(0, 480960, 2, {Packet(20)});
    const Bytes end = Page(kLast, 481500, 3, {Packet(20)});
    EXPECT_EQ(Load(Join({Headers(Head(0)), late, end})).call.samples, 1500);
}

TEST_F(RecordedCallTest, OggOpusGainIsApplied) {
    const Bytes audio = Page(kLast, 2880, 2, {Packet(30, 31), Packet(40, 31), Packet(50, 31)});
    Play(Join({Headers(Head(312)), audio}));
    const Samples loud = ReadWav("out.wav");
    EXPECT_THAT(loud, testing::Contains(testing::Gt(100)));
    Play(Join({Headers(Head(312, -1541)), audio}));  // -6.02 dB
    const Samples soft = ReadWav("out.wav");
    ASSERT_EQ(soft.size(), loud.size());
    for (size_t i = 0; i < loud.size(); ++i)
        EXPECT_NEAR(soft[i], loud[i] * 0.5, 2.0) << i;
}

TEST_F(RecordedCallTest, OggOpusThatIsDamagedOrNoCallIsAnError) {
    // A whole page less is a recording that was not finished properly.
    const Bytes begin = Join({Headers(Head(312)), Page(0, 1920, 2, {Packet(20), {}})});
    const Bytes end = Page(kLast, 2500, 3, {Packet(30)});
    ExpectCutsFail(begin, end);
    Bytes flipped = Join({begin, end});
    flipped[flipped.size() - 5] ^= 1;
    EXPECT_THAT(
        [&] { Load(flipped); },
        ThrowsMessage<Failure>(HasSubstr("damaged at byte " + std::to_string(begin.size()))));
    EXPECT_THROW(Load(Join({begin, Page(kLast, 2880, 4, {Packet(20)})})), Failure);  // a hole

    const Bytes audio = Page(kLast, 960, 2, {Packet(20)});
    EXPECT_THROW(Load(Join({Headers(Head(960)), audio})), Failure);  // nothing behind the pre-skip
    const std::vector<std::pair<size_t, uint8_t>> changes = {{8, 0x10}, {9, 6}, {18, 255}};
    for (const auto &[at, value] : changes) {  // version, channels, mapping family
        Bytes head = Head(312);
        head[at] = value;
        EXPECT_THROW(Load(Join({Headers(head), audio})), Failure) << at;
    }
}

// Three packets of 0xA, the second late, the third before a clock was set back, and a probe; two of
// 0xB; a G.711 stream that outnumbers both.
TEST_F(RecordedCallTest, CaptureYieldsTheOpusStreamWithMostPackets) {
    Bytes file = CaptureHeader();
    for (uint16_t i = 0; i < 5; ++i)
        file = Join({file, Frame(i, Rtp(0xC, 0, i, 160U * i, Bytes(160, 0xFF)))});
    file = Join({file, Frame(100000, Rtp(0xA, 111, 65535, 0xFFFFFFFF, Packet(20))),
                 Frame(110000, Rtp(0xB, 111, 1, 0, Packet(9))),
                 Frame(141500, Rtp(0xA, 111, 0, 959, Packet(21))),
                 Frame(141400, Rtp(0xA, 111, 1, 1919, Packet(22))),
                 Frame(150000, Rtp(0xA, 111, 2, 1919, {})),
                 Frame(191000, Rtp(0xB, 111, 2, 960, Packet(9)))});
    const LoadedCall loaded = Load(file);
    EXPECT_EQ(loaded.source.kind, InputKind::capture);
    ASSERT_EQ(loaded.source.streams.size(), 3U);
    const RtpStream &stream = loaded.source.streams[loaded.source.stream];
    EXPECT_EQ(stream.ssrc, 0xAU);
    EXPECT_EQ(stream.payloadType, 111);
    EXPECT_EQ(stream.packets, 4U);
    EXPECT_EQ(stream.probes, 1U);
    ASSERT_EQ(loaded.notes.size(), 1U);
    EXPECT_THAT(loaded.notes[0],
                HasSubstr("* 0x0000000a   111        4      0.1  10.10.10.10:5004 > "));
    EXPECT_THAT(loaded.notes[0], HasSubstr("not Opus: payload type 0 is PCMU (RFC 3551)"));
    const OpusCall &call = loaded.call;
    ASSERT_EQ(call.packets.size(), 3U);
    EXPECT_EQ(call.packets[1].payload, Packet(21));
    EXPECT_EQ(call.packets[1].sequence, 0);
    EXPECT_EQ(call.packets[1].timestamp, 959U);
    EXPECT_EQ(call.packets[1].arrivalUs, 41500);
    EXPECT_EQ(call.packets[2].arrivalUs, 41500);
    EXPECT_EQ(call.span, 3 * 960);  // across the wrap of the timestamp

    EXPECT_EQ(Load(file, {.ssrc = 0xB, .payloadType = {}}).call.packets.size(), 2U);
    EXPECT_THAT([&] { Load(file, {.ssrc = 0xD, .payloadType = {}}); },
                ThrowsMessage<Failure>(HasSubstr("  0x0000000b   111        2")));
}

TEST_F(RecordedCallTest, CaptureOfEncryptedMediaIsRefused) {
    std::mt19937 twister;
    const auto random = [&twister](size_t count) {
        Bytes bytes(count);
        std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(twister()); });
        return bytes;
    };
    // Encrypted audio, video of five packets a picture, and Opus with a damaged packet.
    Bytes encrypted = CaptureHeader();
    Bytes all = CaptureHeader();
    for (uint16_t i = 0; i < 100; ++i) {
        const Bytes frame = Frame(20000U * i, Rtp(0xE, 111, i, 960U * i, random(60)));
        const Bytes video = Join({{0x90}, random(200)});
        encrypted = Join({encrypted, frame});
        all = Join({all, frame, Frame(20000U * i + 1, Rtp(0xF, 96, i, 3000U * (i / 5), video))});
        if (i >= 20) continue;
        const Bytes opus = i == 9 ? Bytes({0x4B}) : Packet(20);
        all = Join({all, Frame(20000U * i + 2, Rtp(0xA, 111, i, 960U * i, opus))});
    }
    EXPECT_THAT([&] { Load(encrypted); },
                ThrowsMessage<Failure>(HasSubstr("as encryption (SRTP) makes them")));
    EXPECT_THAT([&] { Load(all, {.ssrc = 0xF, .payloadType = {}}); },
                ThrowsMessage<Failure>(HasSubstr("it may be video")));
    const ConcealReport report = Play(all);
    EXPECT_EQ(report.packets, 20U);
    EXPECT_THAT(ReportSummary({}, report), HasSubstr(", 1 not decodable\n"));
}

// Redundant audio of payload type 63, with one packet in plain Opus (96) and the next ones lost.
TEST_F(RecordedCallTest, CaptureOfRedundantAudioIsUnpacked) {
    Bytes file = CaptureHeader();
    const Bytes header = {0xE0, 0x0F, 0, 21, 0x60};  // 960 before, 21 bytes
    const Bytes lying = {0xE0, 0x0F, 3, 21, 0x60, 1};
    for (uint16_t i = 0; i < 20; ++i) {
        Bytes payload = Join({header, Packet(20), Packet(30)});
        if (i == 5) payload = Packet(30);
        if (i == 15) payload = lying;
        if (i == 9 || i == 12) continue;
        const uint8_t type = i == 5 ? 96 : 63;
        file = Join({file, Frame(20000U * i, Rtp(0xA, type, i, 960U * i, payload))});
    }
    const LoadedCall loaded = Load(file);
    EXPECT_THAT(loaded.notes.at(0), HasSubstr("redundant audio of type 96"));
    ASSERT_EQ(loaded.call.packets.size(), 18U);
    EXPECT_EQ(loaded.call.packets[4].payload, Packet(30));
    EXPECT_EQ(loaded.call.packets[5].payload, Packet(30));
    EXPECT_EQ(Load(file, {.payloadType = 96}).call.packets.size(), 18U);
    const AiPlcReceiverStatistics counted = Play(file, 0).statistics;
    EXPECT_EQ(counted.packetsReceived, 18U);
    EXPECT_EQ(counted.packetsLost, 2);
    EXPECT_EQ(counted.packetsUndecodable, 1U);
    EXPECT_EQ(counted.framesBySource[AIPLC_SOURCE_REDUNDANT], 3U);
    EXPECT_EQ(counted.concealedSamples, 0U);

    // Without a copy nothing tells it from Opus but the user.
    const Bytes alone =
        Join({CaptureHeader(), Frame(0, Rtp(1, 63, 0, 0, Join({{0x60}, Packet(9)}))),
              Frame(20000, Rtp(1, 63, 1, 960, Join({{0x60}, Packet(9)})))});
    EXPECT_EQ(Load(alone).call.redType, -1);
    const LoadedCall named = Load(alone, {.redPayloadType = 63});
    EXPECT_EQ(named.call.opusType, 96);
    EXPECT_EQ(named.call.packets[1].payload, Packet(9));
    const Bytes none = Join({CaptureHeader(), Frame(0, Rtp(1, 63, 0, 0, lying))});
    EXPECT_THAT([&] { Load(none, {.redPayloadType = 63}); },
                ThrowsMessage<Failure>(HasSubstr("1 of 1 packets are no redundant audio")));
}

TEST_F(RecordedCallTest, CaptureIsPlayedAtItsPace) {
    // The second packet is 70 ms late: beyond the look-ahead unless the buffer makes up for it.
    const Bytes file = Join({CaptureHeader(), Frame(0, Rtp(1, 96, 0, 0, Packet(20))),
                             Frame(90000, Rtp(1, 96, 1, 960, Packet(20))),
                             Frame(91000, Rtp(1, 96, 4, 3840, Packet(20)))});
    EXPECT_EQ(Play(file, 80).statistics.packetsDiscarded, 0U);
    EXPECT_EQ(Play(file, 0).statistics.packetsDiscarded, 1U);
}

TEST_F(RecordedCallTest, CaptureThatCannotBePlayedIsAnError) {
    const Bytes packet = Rtp(1, 96, 0, 0, Packet(40));
    const Bytes good = Join({CaptureHeader(), Frame(0, packet)});
    const Bytes shortFrame = Join({CaptureHeader(), Frame(0, packet, 20)});
    const Bytes usbFrame = Join({CaptureHeader(220), Frame(0, packet)});
    const Bytes elevenMinutes = Join({good, Frame(660000000, packet)});
    const Bytes noOpus = Join({CaptureHeader(), Frame(0, Rtp(1, 96, 0, 0, {0x4B}))});
    for (const Bytes &bad : {shortFrame, usbFrame, elevenMinutes, noOpus})
        EXPECT_THROW(Load(bad), Failure);
    // A timestamp that jumps does not make the call a day long.
    const Bytes jump = Join({good, Frame(20000, Rtp(1, 96, 1, 0x7F000000, Packet(40)))});
    EXPECT_EQ(Load(jump).call.span, 960 + 960);
}

// A pcap file, an rtpdump file, and either compressed.
TEST_F(RecordedCallTest, CaptureThatIsCutShortIsPlayedToItsEnd) {
    const Bytes packets[] = {Rtp(1, 96, 0, 0, Packet(40)), Rtp(1, 96, 1, 960, Packet(40))};
    Bytes pcap = CaptureHeader();
    Bytes dump = Join({Text("#!rtpplay1.0 10.0.0.1/5004\n"), Bytes(8, 0), Big(0x0A000001, 4),
                       Big(5004, 2), Big(0, 2)});
    dump = Join({dump, Big(16, 2), Big(0, 6), Bytes(8, 0x80)});  // RTCP
    size_t firstEnds[2] = {};
    for (uint32_t i = 0; i < 2; ++i) {
        pcap = Join({pcap, Frame(20000U * i, packets[i])});
        const size_t length = packets[i].size();
        dump = Join({dump, Big(8 + length, 2), Big(length, 2), Big(20U * i, 4), packets[i]});
        if (i == 0) firstEnds[0] = pcap.size(), firstEnds[1] = dump.size();
    }
    for (size_t kind = 0; kind < 2; ++kind) {
        const Bytes &file = kind == 0 ? pcap : dump;
        for (size_t length = 1; length < file.size(); ++length) {
            const Bytes cut(file.begin(), file.begin() + static_cast<long>(length));
            if (length < firstEnds[kind]) {
                EXPECT_THROW(Load(cut), Failure) << length;
                continue;
            }
            const LoadedCall loaded = Load(cut);
            EXPECT_EQ(loaded.call.packets.size(), 1U) << length;
            EXPECT_EQ(loaded.warnings.size(), length == firstEnds[kind] ? 0U : 1U) << length;
        }
        // In two members, as several calls of gzip leave them; the last 8 bytes are a checksum.
        const Bytes half(file.begin(), file.begin() + 40);
        const Bytes rest(file.begin() + 40, file.end());
        Bytes zip = Join({Gzip(half), Gzip(rest)});
        const LoadedCall whole = Load(zip);
        ASSERT_EQ(whole.call.packets.size(), 2U);
        EXPECT_EQ(whole.call.packets[1].arrivalUs, 20000);
        EXPECT_TRUE(whole.warnings.empty());
        EXPECT_EQ(EndpointText(whole.source.streams[0].from),
                  kind == 0 ? "10.10.10.10:5004" : "10.0.0.1:5004");
        zip.resize(zip.size() - 1);
        EXPECT_EQ(Load(zip).warnings.size(), 1U);
        zip[60] ^= 0xFF;
        EXPECT_THROW(Load(zip), Failure);
    }
    EXPECT_THAT(
        [&] {
            Load(Join({Big(0x1A45DFA3, 4), Bytes(100, 0)}));
        },
        ThrowsMessage<Failure>(HasSubstr("call: Matroska (WebM) is not read")));
}

// Section header, interface (raw IP) and enhanced packet blocks, times in microseconds.
TEST_F(RecordedCallTest, CaptureMayBePcapng) {
    const auto block = [](uint64_t type, const Bytes &body) {
        const Bytes length = Little(12 + body.size(), 4);
        return Join({Little(type, 4), length, body, length});
    };
    const Bytes frame = Ipv6(Rtp(7, 96, 3, 960, Packet(15)));
    const Bytes size = Little(frame.size(), 4);
    const Bytes file =
        Join({block(0x0A0D0D0A, Join({Little(0x1A2B3C4D, 4), Little(1, 4), Bytes(8, 0xFF)})),
              block(1, Join({Little(101, 4), Little(0, 4)})),
              block(6, Join({Little(0, 8), Little(77, 4), size, size, frame}))});
    const OpusCall call = Load(file).call;
    ASSERT_EQ(call.packets.size(), 1U);
    EXPECT_EQ(call.packets[0].payload, Packet(15));
}

TEST(LinkLayerTest, FindsTheDatagramInEveryEncapsulation) {
    const Bytes payload = {1, 2, 3, 4};
    const Bytes v4 = Join({Big(0x0800, 2), Ipv4(payload)});
    const std::vector<std::pair<int, Bytes>> frames = {
        {DLT_EN10MB, Ethernet(Join({v4, Bytes(8, 0xEE)}))},  // padded to the shortest frame
        {DLT_EN10MB, Ethernet(Join({Big(0x88A8000581000007, 8), v4}))},  // two VLAN tags
        {DLT_LINUX_SLL, Join({Bytes(14, 0), v4})},
        {DLT_LINUX_SLL2, Join({Big(0x86DD, 2), Bytes(18, 0), Ipv6(payload)})},
        {DLT_NULL, Join({Little(2, 4), Ipv4(payload)})},
        {DLT_RAW, Ipv6(payload)}};
    for (const auto &[linkType, frame] : frames) {
        const auto found = FindUdpPayload(linkType, frame);
        ASSERT_TRUE(found.has_value()) << linkType;
        EXPECT_EQ(Bytes(found->bytes.begin(), found->bytes.end()), payload) << linkType;
        const bool isIpv6 = found->from.addressBytes == 16;
        EXPECT_EQ(EndpointText(found->from),
                  isIpv6 ? "[fefe:fefe:fefe:fefe:fefe:fefe:fefe:fefe]:5004" : "10.10.10.10:5004");
        EXPECT_FALSE(found->cut) << linkType;
        for (size_t length = 0; length < frame.size(); ++length) {
            const auto shorter = FindUdpPayload(linkType, {frame.data(), length});
            EXPECT_TRUE(!shorter || shorter->cut || frame[length] == 0xEE) << linkType;
        }
    }
    EXPECT_FALSE(FindUdpPayload(DLT_RAW, Ipv4(payload, 0x2000)).has_value());  // first fragment
    EXPECT_FALSE(FindUdpPayload(DLT_RAW, Ipv4(payload, 0, 6)).has_value());    // TCP
}

TEST(ParseRtpTest, LeavesOutSourcesExtensionAndPadding) {
    Bytes packet = Rtp(0x11223344, 0x80 | 111, 5, 6, Bytes(8, 0xCC));  // two sources
    packet = Join({packet, Big(0xBEDE000110FF0000, 8), Big(0xABCD000003, 5)});
    packet[0] = 0xB2;  // padding, extension, two contributing sources
    const auto view = host::ParseRtp(packet);
    ASSERT_TRUE(view.has_value());
    EXPECT_EQ(view->payloadType, 111);
    EXPECT_EQ(view->ssrc, 0x11223344U);
    EXPECT_EQ(Bytes(view->payload.begin(), view->payload.end()), Bytes({0xAB, 0xCD}));

    EXPECT_FALSE(host::ParseRtp({packet.data(), 22}).has_value());    // in the extension
    EXPECT_FALSE(host::ParseRtp(Rtp(1, 200, 0, 0, {})).has_value());  // an RTCP sender report
    packet.back() = 200;
    EXPECT_FALSE(host::ParseRtp(packet).has_value());
    packet[0] = 0x40;
    EXPECT_FALSE(host::ParseRtp(packet).has_value());
}

}  // namespace
}  // namespace aiplc::tools
