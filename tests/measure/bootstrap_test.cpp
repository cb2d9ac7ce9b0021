// SPDX-License-Identifier: BSD-2-Clause

#include "measure/bootstrap.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "tests/measure/signals.h"

namespace aiplc::measure {
namespace {

// The mean of n values of a known spread has an interval of +-1.96 spread / sqrt(n).
TEST(BootstrapTest, IntervalOfAMeanIsTheNormalOne) {
    constexpr size_t kUnits = 400;
    Bootstrap bootstrap(2);
    const Samples noise = Noise(5, 1.0, kUnits);  // uniform: spread 65536 / sqrt(12)
    for (const int16_t value : noise) {
        // The second column is the first one moved by 10: their difference is certain.
        bootstrap.AddUnit(
            std::array{Term{static_cast<double>(value), 1.0}, Term{2.0 * (value + 10.0), 2.0}});
    }
    bootstrap.Draw(1);
    const Estimate mean = bootstrap.Mean(0).value();
    const double half = 1.96 * 65536.0 / std::sqrt(12.0 * kUnits);
    EXPECT_NEAR(*mean.high - mean.value, half, 0.12 * half);
    EXPECT_NEAR(mean.value - *mean.low, half, 0.12 * half);
    EXPECT_EQ(mean.count, kUnits);
    const Estimate difference = bootstrap.Difference(1, 0).value();
    EXPECT_NEAR(difference.value, 10.0, 1e-9);
    EXPECT_NEAR(*difference.low, 10.0, 1e-9);
    EXPECT_NEAR(*difference.high, 10.0, 1e-9);
}

// Ten equal values in one unit say no more than one does.
TEST(BootstrapTest, UnitsAreDrawnWhole) {
    Bootstrap single(1);
    Bootstrap tenfold(1);
    for (const int16_t value : Noise(6, 1.0, 50)) {
        single.AddUnit(std::array{Term{static_cast<double>(value), 1.0}});
        tenfold.AddUnit(std::array{Term{10.0 * value, 10.0}});
    }
    single.Draw(1);
    tenfold.Draw(1);
    EXPECT_NEAR(*single.Mean(0)->low, *tenfold.Mean(0)->low, 1e-6);
    EXPECT_NEAR(*single.Mean(0)->high, *tenfold.Mean(0)->high, 1e-6);
    EXPECT_EQ(tenfold.Mean(0)->count, 500.0);
}

TEST(BootstrapTest, SaysNothingWhereNothingIsKnown) {
    Bootstrap bootstrap(2);
    bootstrap.AddUnit(std::array{Term{7.0, 2.0}, Term{}});
    bootstrap.Draw(1);
    EXPECT_EQ(bootstrap.Mean(0)->value, 3.5);
    EXPECT_FALSE(bootstrap.Mean(0)->low.has_value());  // one unit has no spread
    EXPECT_FALSE(bootstrap.Mean(1).has_value());
    EXPECT_FALSE(bootstrap.Difference(0, 1).has_value());
}

}  // namespace
}  // namespace aiplc::measure
