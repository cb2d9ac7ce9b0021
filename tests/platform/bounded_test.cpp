// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <string>

#include "platform/platform.h"

namespace aiplc::platform {
namespace {

TEST(Bounded, KeepsWithinTheDestinationAndClearsItOnFailure) {
    char text[] = "abcdefgh|";
    EXPECT_EQ(CopyBounded(text, 4, text + 4, 4), 0) << "neighbours do not overlap";
    EXPECT_EQ(FillBounded(text, 8, 'z', 2), 0);
    EXPECT_STREQ(text, "zzghefgh|");
    const char *const badSources[] = {"123456789", nullptr, text + 3};
    for (const char *source : badSources) {
        text[1] = 'x';
        EXPECT_NE(CopyBounded(text, 8, source, source == badSources[0] ? 9 : 4), 0);
        EXPECT_EQ(std::string(text, 9), std::string(8, '\0') + '|');
    }
    EXPECT_NE(FillBounded(text, 8, 'y', 9), 0);
    EXPECT_EQ(text[8], '|');
    EXPECT_NE(CopyBounded(text, static_cast<size_t>(-1), "x", 1), 0);
}

}  // namespace
}  // namespace aiplc::platform
