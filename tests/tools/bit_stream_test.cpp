// SPDX-License-Identifier: BSD-2-Clause

#include "tools/bit_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scratch_folder.h"
#include "tools/failure.h"

namespace aiplc::tools {
namespace {

void PutPacket(Bytes &file, const Bytes &packet) {
    Put(file, packet.size(), 4);
    Put(file, 0xDEADBEEF, 4);
    Append(file, packet);
}

class BitStreamTest : public testing::Test {
  protected:
    OpusCall Read(const Bytes &file) {
        InputFile input = InputFile::Open(m_folder.Write("call.bit", file));
        return ReadBitStream(input);
    }

    ScratchFolder m_folder;
};

TEST_F(BitStreamTest, PacketsAndLosses) {
    Bytes file;
    PutPacket(file, WidebandPacket(20));
    PutPacket(file, {});
    PutPacket(file, NarrowbandPacket(1));
    InputFile input = InputFile::Open(m_folder.Write("call.bit", file));
    EXPECT_EQ(input.Kind(), InputKind::bitStream);

    const OpusCall call = ReadBitStream(input);
    ASSERT_EQ(call.packets.size(), 3U);
    EXPECT_EQ(call.packets[0].payload, WidebandPacket(20));
    EXPECT_TRUE(call.packets[1].payload.empty());
    EXPECT_EQ(call.packets[2].timestamp, 1920U);
    EXPECT_EQ(call.packets[2].arrivalUs, 40000);
    EXPECT_EQ(call.samples, 3 * 960);
}

TEST_F(BitStreamTest, EveryTruncationIsAnError) {
    Bytes file;
    PutPacket(file, WidebandPacket(20));
    const size_t whole = file.size();
    PutPacket(file, WidebandPacket(5));
    for (size_t length = 1; length < file.size(); ++length) {
        if (length == whole) continue;
        EXPECT_THROW(Read({file.begin(), file.begin() + static_cast<long>(length)}), Failure);
    }
}

TEST_F(BitStreamTest, NonsenseIsAnError) {
    Bytes absurd;
    PutPacket(absurd, WidebandPacket(20));
    Put(absurd, 0x7FFFFFFF, 4);
    Put(absurd, 0, 4);
    EXPECT_THROW(Read(absurd), Failure);

    Bytes notOpus;  // code 3 of the table of contents promises a frame count that is missing
    PutPacket(notOpus, {0x4B});
    EXPECT_THROW(Read(notOpus), Failure);

    Bytes allLost;
    PutPacket(allLost, {});
    EXPECT_THROW(Read(allLost), Failure);
}

TEST(InputKindTest, OtherFilesAreNoBitStream) {
    const ScratchFolder folder;
    EXPECT_EQ(InputFile::Open(folder.Write("zeros", Bytes(500, 0))).Kind(), InputKind::unknown);
    EXPECT_EQ(InputFile::Open(folder.Write("text", std::string("to whom it may concern"))).Kind(),
              InputKind::unknown);
    EXPECT_EQ(InputFile::Open(folder.Write("x.bit", WavFile({1, 2, 3}, 16000, 1))).Kind(),
              InputKind::speechAudio);
    EXPECT_THROW(InputFile::Open(folder.Write("empty", Bytes())), Failure);
    EXPECT_THROW(InputFile::Open(folder.Path("")), Failure);
}

}  // namespace
}  // namespace aiplc::tools
