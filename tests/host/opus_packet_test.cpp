// SPDX-License-Identifier: BSD-2-Clause

#include "host/opus_packet.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace aiplc::host {
namespace {

TEST(OpusPacket, ReadsFlagsWhereTheRfcPutsThem) {
    // TOC: configuration << 3 | stereo << 2 | frame count code.
    constexpr uint8_t kSilk20 = 9 << 3;
    constexpr uint8_t kSilk40 = 10 << 3;
    constexpr uint8_t kSilk60 = 11 << 3;
    constexpr uint8_t kHybrid20 = 15 << 3;
    constexpr uint8_t kCelt20 = 31 << 3;
    constexpr uint8_t kStereo = 4;
    constexpr uint8_t kTwoFrames = 1;
    const std::tuple<int, int, bool> cases[] = {
        // voice activity flags of all SILK frames, redundancy flag; in stereo twice
        {kSilk20, 0x40, true},
        {kSilk20, 0xBF, false},
        {kSilk40, 0x20, true},
        {kSilk60, 0x10, true},
        {kSilk60, 0xEF, false},
        {kSilk20 | kStereo, 0x10, true},
        {kSilk20 | kStereo, 0xAF, false},
        {kSilk60 | kStereo, 0x01, true},
        {kHybrid20, 0x40, true},
        {kCelt20, 0xFF, false},
        {kSilk20 | kTwoFrames, 0x40, true}};
    for (const auto &[toc, flags, redundancy] : cases) {
        const std::vector<uint8_t> packet = {static_cast<uint8_t>(toc), static_cast<uint8_t>(flags),
                                             1, 2, 3};
        ASSERT_TRUE(ParseOpusPacket(packet)) << toc;
        EXPECT_EQ(ParseOpusPacket(packet)->redundancy, redundancy) << toc << " " << flags;
    }
}

}  // namespace
}  // namespace aiplc::host
