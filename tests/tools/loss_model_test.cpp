// SPDX-License-Identifier: BSD-2-Clause

#include "tools/loss/loss_model.h"

#include <gmock/gmock.h>

#include <string>

#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

std::string Draw(LossModel &&model, size_t count) {
    std::string verdicts;
    for (size_t i = 0; i < count; ++i)
        verdicts += model.NextLost() ? '1' : '0';
    return verdicts;
}

size_t Count(const std::string &verdicts, const std::string &pattern) {
    size_t count = 0;
    for (size_t at = 0; (at = verdicts.find(pattern, at)) != std::string::npos; ++at)
        ++count;
    return count;
}

// Tolerances are five standard deviations of the estimate: with correlation c between neighbours
// the share of n packets has variance p (1 - p) (1 + c) / (1 - c) / n; a geometric burst of mean L
// has variance L (L - 1).
TEST(GilbertElliottTest, FollowsTheClosedForm) {
    struct Case {
        double share, burst, meanBurst, shareWithin, burstWithin;
    };
    for (const Case &one :
         {Case{0.1, 3.0, 3.0, 0.0032, 0.07}, Case{0.2, 0.0, 1.25, 0.002, 0.007}}) {
        const std::string drawn = Draw(GilbertElliott(one.share, one.burst, 1), 1000000);
        const auto lost = static_cast<double>(Count(drawn, "1"));
        const auto bursts = static_cast<double>(Count(drawn, "01"));
        EXPECT_NEAR(lost / 1e6, one.share, one.shareWithin);
        EXPECT_NEAR(lost / bursts, one.meanBurst, one.burstWithin);
        const auto single = static_cast<double>(Count(drawn, "010"));
        EXPECT_NEAR(single / bursts, 1.0 / one.meanBurst, 0.013);
    }
}

// Worked out by a separate implementation of the 64-bit Mersenne Twister and the chain.
TEST(GilbertElliottTest, SeedGivesTheSameLossesEverywhere) {
    EXPECT_EQ(Draw(GilbertElliott(0.3, 2.0, 11), 64),
              "1100100000011000011100000001000000010001110000100110000010110000");
}

TEST(GilbertElliottTest, RefusesWhatCannotBe) {
    EXPECT_THROW(GilbertElliott(-0.01, 0.0, 1), UsageError);
    EXPECT_THROW(GilbertElliott(0.1, 0.5, 1), UsageError);
    // Bursts of 2 leave at least one packet in three.
    EXPECT_NO_THROW(GilbertElliott(0.666, 2.0, 1));
    EXPECT_THROW(GilbertElliott(0.667, 2.0, 1), UsageError);
    EXPECT_EQ(Draw(GilbertElliott(0.0, 4.0, 1), 50), std::string(50, '0'));
}

TEST(LossTraceTest, ReadsDigitsAndRepeats) {
    EXPECT_EQ(Draw(LossTrace("0 1\n\t1\r\n0", "trace"), 9), "011001100");
    EXPECT_THROW(LossTrace(" \n", "trace"), Failure);
    EXPECT_THAT([] { LossTrace("01\n0 x", "wifi.txt"); },
                testing::ThrowsMessage<Failure>(testing::HasSubstr("wifi.txt: line 2, column 3")));
}

}  // namespace
}  // namespace aiplc::tools
