// SPDX-License-Identifier: BSD-2-Clause

#include "tools/loss_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tools/failure.h"

namespace aiplc::tools {
namespace {

std::string Draw(LossModel &model, size_t count) {
    std::string verdicts;
    for (size_t i = 0; i < count; ++i)
        verdicts += model.NextLost() ? '1' : '0';
    return verdicts;
}

struct Counted {
    double lost = 0;
    double bursts = 0;
    double single = 0;  // bursts of one packet
};

Counted Count(const std::string &verdicts) {
    Counted counted;
    for (size_t i = 1; i + 1 < verdicts.size(); ++i) {
        if (verdicts[i] == '0') continue;
        ++counted.lost;
        const bool begins = verdicts[i - 1] == '0';
        counted.bursts += begins ? 1 : 0;
        counted.single += begins && verdicts[i + 1] == '0' ? 1 : 0;
    }
    return counted;
}

// Tolerances are five standard deviations of the estimate: with correlation c between neighbours
// the share of n packets has variance p (1 - p) (1 + c) / (1 - c) / n; a geometric burst of mean L
// has variance L (L - 1).
TEST(GilbertElliottTest, FollowsTheClosedForm) {
    constexpr size_t kPackets = 1000000;
    GilbertElliott model(0.1, 3.0, 1);
    const Counted counted = Count(Draw(model, kPackets));
    EXPECT_NEAR(counted.lost / kPackets, 0.1, 0.0032);
    EXPECT_NEAR(counted.lost / counted.bursts, 3.0, 0.07);
    EXPECT_NEAR(counted.single / counted.bursts, 1.0 / 3.0, 0.013);

    GilbertElliott independent(0.2, 0.0, 1);
    const Counted free = Count(Draw(independent, kPackets));
    EXPECT_NEAR(free.lost / kPackets, 0.2, 0.002);
    EXPECT_NEAR(free.lost / free.bursts, 1.0 / 0.8, 0.007);
}

// Worked out by a separate implementation of the 64-bit Mersenne Twister and the chain.
TEST(GilbertElliottTest, SeedGivesTheSameLossesEverywhere) {
    GilbertElliott model(0.3, 2.0, 7);
    EXPECT_EQ(Draw(model, 64), "0011011100000000000000101000000100000011000011011100000110010000");
    GilbertElliott other(0.3, 2.0, 8);
    EXPECT_NE(Draw(other, 64), Draw(model, 64));
}

TEST(GilbertElliottTest, RefusesWhatCannotBe) {
    EXPECT_THROW(GilbertElliott(1.0, 0.0, 1), UsageError);
    EXPECT_THROW(GilbertElliott(-0.01, 0.0, 1), UsageError);
    EXPECT_THROW(GilbertElliott(0.1, 0.5, 1), UsageError);
    // Bursts of 2 leave at least one packet in three.
    EXPECT_NO_THROW(GilbertElliott(0.666, 2.0, 1));
    EXPECT_THROW(GilbertElliott(0.667, 2.0, 1), UsageError);
    GilbertElliott never(0.0, 4.0, 1);
    EXPECT_EQ(Draw(never, 50), std::string(50, '0'));
}

TEST(LossTraceTest, ReadsDigitsAndRepeats) {
    LossTrace trace("0 1\n\t1\r\n0", "trace");
    EXPECT_EQ(Draw(trace, 9), "011001100");
    EXPECT_THROW(LossTrace(" \n", "trace"), Failure);
    try {
        const LossTrace wrong("01\n0 x", "wifi.txt");
        FAIL() << "x was taken";
    } catch (const Failure &error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("wifi.txt: line 2, column 3"));
    }
}

}  // namespace
}  // namespace aiplc::tools
