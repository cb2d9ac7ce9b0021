// SPDX-License-Identifier: BSD-2-Clause

#include "host/stream_clock.h"

#include <gtest/gtest.h>

namespace aiplc::host {
namespace {

using Verdict = StreamClock::Verdict;

TEST(StreamClock, UnwrapsFindsDuplicatesAndCountsLosses) {
    StreamClock clock;
    const auto first = clock.Arrive({65534, 0xFFFFFE00, {}}, 0);
    EXPECT_EQ(first.place.start, 0);
    const auto afterWrap = clock.Arrive({1, 0xFFFFFE00 + 3 * 960, {}}, 960);
    EXPECT_EQ(afterWrap.verdict, Verdict::placed);
    EXPECT_EQ(afterWrap.place.start, 2880);
    EXPECT_EQ(afterWrap.place.sequence - first.place.sequence, 3);
    EXPECT_EQ(clock.PacketsLost(), 2);
    EXPECT_EQ(clock.Arrive({65535, 0xFFFFFE00 + 960, {}}, 1920).place.start, 960);
    EXPECT_EQ(clock.Arrive({65535, 0xFFFFFE00 + 960, {}}, 1920).verdict, Verdict::duplicate);
    EXPECT_EQ(clock.PacketsLost(), 0);  // 4 expected, 4 arrived, one of them twice
    // A clock 1 ms off the grid of 2.5 ms is put back.
    EXPECT_EQ(clock.Arrive({2, 0xFFFFFE00 + 4 * 960 + 48, {}}, 2880).place.start, 3840);
}

TEST(StreamClock, FollowsARestartButNoStrayPacket) {
    StreamClock clock;
    clock.Arrive({10, 1000, {}}, 0);
    EXPECT_EQ(clock.Arrive({11, 1960, {}}, 960).verdict, Verdict::placed);
    EXPECT_EQ(clock.Arrive({12, 0x80001960, {}}, 1920).verdict, Verdict::misplaced);
    EXPECT_EQ(clock.Arrive({12, 2920, {}}, 1920).verdict, Verdict::placed);
    // 10 s and one frame ahead of the frame that is due, then the packet after it.
    const uint32_t far = 3880 + 480000 + 960;
    EXPECT_EQ(clock.Arrive({500, far, {}}, 2880).verdict, Verdict::misplaced);
    const auto restarted = clock.Arrive({501, far + 960, {}}, 3840);
    EXPECT_EQ(restarted.verdict, Verdict::restarted);
    EXPECT_EQ(restarted.place.start, 3840);
    EXPECT_EQ(clock.Arrive({502, far + 1920, {}}, 4800).place.start, 4800);
    EXPECT_EQ(clock.PacketsLost(), 0);
}

}  // namespace
}  // namespace aiplc::host
