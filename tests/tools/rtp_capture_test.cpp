// SPDX-License-Identifier: BSD-2-Clause

#include "tools/rtp_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/dlt.h>

#include "scratch_folder.h"
#include "tools/failure.h"
#include "tools/link_layer.h"

namespace aiplc::tools {
namespace {

constexpr uint32_t kEthernet = 1;
constexpr uint32_t kRawIp = 101;

// RFC 3550, section 5.1.
Bytes Rtp(uint32_t ssrc, uint8_t type, uint16_t sequence, uint32_t timestamp,
          const Bytes &payload) {
    Bytes packet = {0x80, type};
    Put(packet, sequence, 2);
    Put(packet, timestamp, 4);
    Put(packet, ssrc, 4);
    Append(packet, payload);
    return packet;
}

Bytes Udp(const Bytes &payload) {
    Bytes datagram;
    Put(datagram, 5004, 2);
    Put(datagram, 5006, 2);
    Put(datagram, 8 + payload.size(), 2);
    Put(datagram, 0, 2);
    Append(datagram, payload);
    return datagram;
}

Bytes Ipv4(const Bytes &datagram, uint16_t fragment = 0) {
    Bytes packet = {0x45, 0};
    Put(packet, 20 + datagram.size(), 2);
    Put(packet, 0, 2);
    Put(packet, fragment, 2);
    Append(packet, {64, 17, 0, 0, 10, 0, 0, 1, 10, 0, 0, 2});
    Append(packet, datagram);
    return packet;
}

// With a hop-by-hop header of 8 bytes in front of UDP.
Bytes Ipv6(const Bytes &datagram) {
    Bytes packet = {0x60, 0, 0, 0};
    Put(packet, 8 + datagram.size(), 2);
    Append(packet, {0, 64});
    packet.resize(40, 0xFE);
    Append(packet, {17, 0, 1, 4, 0, 0, 0, 0});
    Append(packet, datagram);
    return packet;
}

Bytes Ethernet(const Bytes &packet, const Bytes &type) {
    Bytes frame(12, 0x02);
    Append(frame, type);
    Append(frame, packet);
    return frame;
}

// The classic format, microseconds, Intel byte order.
class CaptureFile {
  public:
    explicit CaptureFile(uint32_t linkType) {
        PutLittle(m_bytes, 0xA1B2C3D4, 4);
        PutLittle(m_bytes, 2, 2);
        PutLittle(m_bytes, 4, 2);
        PutLittle(m_bytes, 0, 8);
        PutLittle(m_bytes, 65535, 4);
        PutLittle(m_bytes, linkType, 4);
    }

    void Add(int64_t timeUs, const Bytes &frame, size_t missing = 0) {
        PutLittle(m_bytes, static_cast<uint64_t>(1700000000 + timeUs / 1000000), 4);
        PutLittle(m_bytes, static_cast<uint64_t>(timeUs % 1000000), 4);
        PutLittle(m_bytes, frame.size() - missing, 4);
        PutLittle(m_bytes, frame.size(), 4);
        m_bytes.insert(m_bytes.end(), frame.begin(), frame.end() - static_cast<long>(missing));
    }

    const Bytes &Contents() const { return m_bytes; }

  private:
    Bytes m_bytes;
};

class RtpCaptureTest : public testing::Test {
  protected:
    CapturedCall Read(const Bytes &file, const StreamChoice &choice = {}) {
        return ReadCapture(InputFile::Open(m_folder.Write("call.pcap", file)), choice);
    }

    // Three packets of 0xA, the second late; two of 0xB; a G.711 stream that outnumbers both.
    static Bytes Call() {
        CaptureFile file(kEthernet);
        const auto add = [&](int64_t timeUs, const Bytes &rtp) {
            file.Add(timeUs, Ethernet(Ipv4(Udp(rtp)), {0x08, 0x00}));
        };
        for (uint16_t i = 0; i < 4; ++i)
            add(i, Rtp(0xC, 0, i, 160U * i, Bytes(160, 0xFF)));
        add(100000, Rtp(0xA, 111, 65535, 0xFFFFFFFF, WidebandPacket(20)));
        add(110000, Rtp(0xB, 111, 1, 0, NarrowbandPacket(9)));
        add(121500, Rtp(0xA, 111, 0, 959, WidebandPacket(21)));
        add(190000, Rtp(0xA, 111, 1, 1919, WidebandPacket(22)));
        add(191000, Rtp(0xB, 111, 2, 960, NarrowbandPacket(9)));
        return file.Contents();
    }

    ScratchFolder m_folder;
};

TEST_F(RtpCaptureTest, TakesTheOpusStreamWithMostPackets) {
    const CapturedCall captured = Read(Call());
    EXPECT_EQ(captured.ssrc, 0xAU);
    EXPECT_EQ(captured.payloadType, 111);
    EXPECT_EQ(captured.otherStreams, 2U);
    const OpusCall &call = captured.call;
    ASSERT_EQ(call.packets.size(), 3U);
    EXPECT_TRUE(call.hasArrivalTimes);
    EXPECT_EQ(call.packets[1].payload, WidebandPacket(21));
    EXPECT_EQ(call.packets[1].sequence, 0);
    EXPECT_EQ(call.packets[1].timestamp, 959U);
    EXPECT_EQ(call.packets[1].arrivalUs, 21500);
    EXPECT_EQ(call.packets[2].arrivalUs, 90000);
    EXPECT_EQ(call.span, 3 * 960);  // across the wrap of the timestamp

    StreamChoice choice;
    choice.ssrc = 0xB;
    EXPECT_EQ(Read(Call(), choice).call.packets.size(), 2U);
    choice.ssrc = 0xD;
    try {
        Read(Call(), choice);
        FAIL() << "a stream that is not there was found";
    } catch (const Failure &error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("--ssrc 0x0000000b --payload-type 111"));
    }
}

TEST_F(RtpCaptureTest, EveryTruncationIsAnError) {
    const Bytes file = Call();
    const size_t beforeLast = file.size() - (16 + 14 + 20 + 8 + 12 + 10);
    for (size_t length = beforeLast + 1; length < file.size(); ++length) {
        EXPECT_THROW(Read({file.begin(), file.begin() + static_cast<long>(length)}), Failure);
    }
    for (size_t length = 4; length < 24; ++length) {
        EXPECT_THROW(Read({file.begin(), file.begin() + static_cast<long>(length)}), Failure);
    }
}

TEST_F(RtpCaptureTest, SaysWhatIsWrongWithACapture) {
    CaptureFile cut(kRawIp);
    cut.Add(0, Ipv4(Udp(Rtp(1, 96, 0, 0, WidebandPacket(40)))), 20);
    EXPECT_THROW(Read(cut.Contents()), Failure);

    CaptureFile unknown(147);
    unknown.Add(0, Ipv4(Udp(Rtp(1, 96, 0, 0, WidebandPacket(40)))));
    EXPECT_THROW(Read(unknown.Contents()), Failure);

    CaptureFile endless(kRawIp);  // a clock that jumps by eleven minutes
    endless.Add(0, Ipv4(Udp(Rtp(1, 96, 0, 0, WidebandPacket(40)))));
    endless.Add(int64_t{660} * 1000000, Ipv4(Udp(Rtp(1, 96, 1, 960, WidebandPacket(40)))));
    EXPECT_THROW(Read(endless.Contents()), Failure);
}

// pcapng: section header, interface and enhanced packet blocks, times in microseconds.
TEST_F(RtpCaptureTest, ReadsPcapng) {
    Bytes file;
    for (const uint64_t word : {0x0A0D0D0AULL, 28ULL, 0x1A2B3C4DULL, 1ULL})
        PutLittle(file, word, 4);
    PutLittle(file, ~uint64_t{0}, 8);
    PutLittle(file, 28, 4);
    for (const uint32_t word : {1U, 20U, kRawIp, 0U, 20U})
        PutLittle(file, word, 4);
    const Bytes frame = Ipv6(Udp(Rtp(7, 96, 3, 960, WidebandPacket(15))));
    ASSERT_EQ(frame.size() % 4, 0U);
    for (const uint64_t word : std::initializer_list<uint64_t>{6, 32 + frame.size(), 0, 0, 77,
                                                               frame.size(), frame.size()}) {
        PutLittle(file, word, 4);
    }
    Append(file, frame);
    PutLittle(file, 32 + frame.size(), 4);
    const CapturedCall captured = Read(file);
    ASSERT_EQ(captured.call.packets.size(), 1U);
    EXPECT_EQ(captured.call.packets[0].payload, WidebandPacket(15));
}

TEST(LinkLayerTest, FindsTheDatagramInEveryEncapsulation) {
    const Bytes payload = {1, 2, 3, 4};
    const Bytes packet = Ipv4(Udp(payload));
    Bytes cooked(14, 0);
    Append(cooked, {0x08, 0x00});
    Append(cooked, packet);
    Bytes cooked2 = {0x86, 0xDD};
    cooked2.resize(20, 0);
    Append(cooked2, Ipv6(Udp(payload)));
    Bytes loopback = {2, 0, 0, 0};
    Append(loopback, packet);
    Bytes padded = Ethernet(packet, {0x08, 0x00});
    padded.resize(64, 0xEE);
    const std::vector<std::pair<int, Bytes>> frames = {
        {DLT_EN10MB, padded},
        {DLT_EN10MB, Ethernet(packet, {0x88, 0xA8, 0, 5, 0x81, 0x00, 0, 7, 0x08, 0x00})},
        {DLT_LINUX_SLL, cooked},
        {DLT_LINUX_SLL2, cooked2},
        {DLT_NULL, loopback},
        {DLT_RAW, Ipv6(Udp(payload))}};
    for (const auto &[linkType, frame] : frames) {
        const auto found = FindUdpPayload(linkType, frame);
        ASSERT_TRUE(found.has_value()) << linkType;
        EXPECT_EQ(Bytes(found->bytes.begin(), found->bytes.end()), payload) << linkType;
        EXPECT_FALSE(found->cut);
        for (size_t length = 0; length < frame.size(); ++length) {
            const auto shorter = FindUdpPayload(linkType, {frame.data(), length});
            EXPECT_TRUE(!shorter || shorter->cut || linkType == DLT_EN10MB) << linkType;
        }
    }
    EXPECT_FALSE(FindUdpPayload(DLT_RAW, Ipv4(Udp(payload), 0x2000)).has_value());
    Bytes tcp = packet;
    tcp[9] = 6;
    EXPECT_FALSE(FindUdpPayload(DLT_RAW, tcp).has_value());
}

TEST(ParseRtpTest, LeavesOutSourcesExtensionAndPadding) {
    Bytes packet = Rtp(0x11223344, 0x80 | 111, 5, 6, {});
    packet[0] = 0xB2;  // padding, extension, two contributing sources
    Append(packet, Bytes(8, 0xCC));
    Append(packet, {0xBE, 0xDE, 0, 1, 0x10, 0xFF, 0, 0});
    Append(packet, {0xAB, 0xCD, 0, 0, 3});
    const auto view = ParseRtp(packet);
    ASSERT_TRUE(view.has_value());
    EXPECT_EQ(view->payloadType, 111);
    EXPECT_EQ(view->ssrc, 0x11223344U);
    EXPECT_EQ(Bytes(view->payload.begin(), view->payload.end()), Bytes({0xAB, 0xCD}));

    packet.back() = 200;
    EXPECT_FALSE(ParseRtp(packet).has_value());
    EXPECT_FALSE(ParseRtp({packet.data(), 22}).has_value());    // in the extension
    EXPECT_FALSE(ParseRtp(Rtp(1, 200, 0, 0, {})).has_value());  // an RTCP sender report
    packet[0] = 0x40;
    EXPECT_FALSE(ParseRtp(packet).has_value());
}

}  // namespace
}  // namespace aiplc::tools
