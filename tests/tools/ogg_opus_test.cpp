// SPDX-License-Identifier: BSD-2-Clause

#include "tools/ogg_opus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "scratch_folder.h"
#include "tools/failure.h"

namespace aiplc::tools {
namespace {

constexpr uint8_t kFirst = 2;
constexpr uint8_t kLast = 4;
constexpr uint32_t kSerial = 0x1234;

// RFC 3533, section 6: polynomial 0x04C11DB7, most significant bit first, no inversion.
uint32_t Checksum(const Bytes &page) {
    uint32_t crc = 0;
    for (const uint8_t byte : page) {
        crc ^= uint32_t{byte} << 24;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc << 1) ^ ((crc & 0x80000000U) != 0 ? 0x04C11DB7U : 0U);
        }
    }
    return crc;
}

// A page of whole packets, each shorter than 255 bytes.
Bytes Page(uint8_t flags, int64_t granule, uint32_t number, const std::vector<Bytes> &packets) {
    Bytes page = {'O', 'g', 'g', 'S', 0, flags};
    PutLittle(page, static_cast<uint64_t>(granule), 8);
    PutLittle(page, kSerial, 4);
    PutLittle(page, number, 4);
    PutLittle(page, 0, 4);
    page.push_back(static_cast<uint8_t>(packets.size()));
    for (const Bytes &packet : packets)
        page.push_back(static_cast<uint8_t>(packet.size()));
    for (const Bytes &packet : packets)
        Append(page, packet);
    Bytes checksum;
    PutLittle(checksum, Checksum(page), 4);
    std::copy(checksum.begin(), checksum.end(), page.begin() + 22);
    return page;
}

// RFC 7845, section 5.1.
Bytes Head(uint8_t channels, uint16_t preSkip, int16_t gain, uint8_t family) {
    Bytes head = {'O', 'p', 'u', 's', 'H', 'e', 'a', 'd', 1, channels};
    PutLittle(head, preSkip, 2);
    PutLittle(head, 48000, 4);
    PutLittle(head, static_cast<uint16_t>(gain), 2);
    head.push_back(family);
    return head;
}

Bytes Tags() {
    return {'O', 'p', 'u', 's', 'T', 'a', 'g', 's', 0, 0, 0, 0, 0, 0, 0, 0};
}

class OggOpusTest : public testing::Test {
  protected:
    OpusCall Read(const Bytes &file) {
        InputFile input = InputFile::Open(m_folder.Write("call.opus", file));
        return ReadOggOpus(input);
    }

    static Bytes File(int64_t lastGranule) {
        Bytes file = Page(kFirst, 0, 0, {Head(1, 312, -256, 0)});
        Append(file, Page(0, 0, 1, {Tags()}));
        Append(file, Page(0, 1920, 2, {WidebandPacket(20), {}}));
        Append(file, Page(kLast, lastGranule, 3, {WidebandPacket(30)}));
        return file;
    }

    ScratchFolder m_folder;
};

TEST_F(OggOpusTest, PacketsPreSkipGainAndEndTrimming) {
    const OpusCall call = Read(File(2500));
    ASSERT_EQ(call.packets.size(), 3U);
    EXPECT_TRUE(call.packets[1].payload.empty());
    EXPECT_EQ(call.packets[2].payload, WidebandPacket(30));
    EXPECT_EQ(call.packets[2].timestamp, 1920U);
    EXPECT_EQ(call.span, 2880);
    EXPECT_EQ(call.delaySamples, 312);
    EXPECT_EQ(call.samples, 2500 - 312);
    EXPECT_EQ(call.outputGainQ8, -256);
    // A last position behind the last packet promises nothing that is not there.
    EXPECT_EQ(Read(File(1 << 30)).samples, 2880 - 312);
}

TEST_F(OggOpusTest, StreamCutFromALongerOneStartsLate) {
    Bytes file = Page(kFirst, 0, 0, {Head(2, 0, 0, 0)});
    Append(file, Page(0, 0, 1, {Tags()}));
    Append(file, Page(0, 480960, 2, {WidebandPacket(20)}));
    Append(file, Page(kLast, 481500, 3, {WidebandPacket(20)}));
    EXPECT_EQ(Read(file).samples, 1500);
}

TEST_F(OggOpusTest, EveryTruncationInsideAPageIsAnError) {
    const Bytes file = File(2500);
    const size_t lastPage = file.size() - (27 + 1 + 31);
    for (size_t length = 1; length < file.size(); ++length) {
        if (length == lastPage) continue;  // a recording that was not finished properly
        EXPECT_THROW(Read({file.begin(), file.begin() + static_cast<long>(length)}), Failure)
            << length;
    }
    EXPECT_EQ(Read({file.begin(), file.begin() + static_cast<long>(lastPage)}).packets.size(), 2U);
}

TEST_F(OggOpusTest, DamageIsAnErrorThatSaysWhere) {
    Bytes flipped = File(2500);
    flipped[flipped.size() - 5] ^= 1;
    try {
        Read(flipped);
        FAIL() << "a wrong checksum was taken";
    } catch (const Failure &error) {
        const size_t lastPage = flipped.size() - (27 + 1 + 31);
        EXPECT_THAT(error.what(),
                    testing::HasSubstr("damaged at byte " + std::to_string(lastPage)));
    }
    Bytes hole = Page(kFirst, 0, 0, {Head(1, 312, 0, 0)});
    Append(hole, Page(0, 0, 1, {Tags()}));
    Append(hole, Page(kLast, 960, 3, {WidebandPacket(20)}));
    EXPECT_THROW(Read(hole), Failure);
}

TEST_F(OggOpusTest, RefusesWhatIsNoCall) {
    const auto withHead = [](const Bytes &head) {
        Bytes file = Page(kFirst, 0, 0, {head});
        Append(file, Page(0, 0, 1, {Tags()}));
        Append(file, Page(kLast, 960, 2, {WidebandPacket(20)}));
        return file;
    };
    EXPECT_NO_THROW(Read(withHead(Head(1, 312, 0, 0))));
    EXPECT_THROW(Read(withHead(Head(6, 312, 0, 1))), Failure);
    EXPECT_THROW(Read(withHead(Head(1, 960, 0, 0))), Failure);  // nothing behind the pre-skip
    Bytes future = Head(1, 312, 0, 0);
    future[8] = 0x10;
    EXPECT_THROW(Read(withHead(future)), Failure);
}

}  // namespace
}  // namespace aiplc::tools
