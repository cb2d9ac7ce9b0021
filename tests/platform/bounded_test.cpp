// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <string>

#include "platform/platform.h"

namespace aiplc::platform {
namespace {

int Format(char *buffer, size_t size, size_t maxCount, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = FormatBounded(buffer, size, maxCount, format, arguments);
    va_end(arguments);
    return result;
}

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
    EXPECT_NE(CopyBounded(nullptr, 8, "x", 1), 0);
    EXPECT_NE(CopyBounded(text, static_cast<size_t>(-1), "x", 1), 0);
    EXPECT_NE(FillBounded(nullptr, 8, 0, 1), 0);
}

TEST(Bounded, FormatsWholeTextsOnly) {
    char text[8];
    EXPECT_EQ(Format(text, sizeof text, 7, "%d-%s", 42, "abcd"), 7);
    EXPECT_STREQ(text, "42-abcd");
    EXPECT_EQ(Format(text, sizeof text, 3, "%d", 1234), -1) << "longer than maxCount";
    EXPECT_EQ(Format(text, sizeof text, 99, "%s", "12345678"), -1) << "longer than the buffer";
    EXPECT_STREQ(text, "");
    EXPECT_EQ(Format(text, sizeof text, 3, nullptr), -1);
}

}  // namespace
}  // namespace aiplc::platform
