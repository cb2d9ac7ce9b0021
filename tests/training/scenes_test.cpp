// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <map>
#include <numbers>
#include <span>

#include "training/collect/loss_plan.h"
#include "training/collect/sounds.h"

namespace aiplc::training {
namespace {

constexpr size_t kPackets = 200000;

struct LossFigures {
    double rate = 0;
    std::map<size_t, double> bursts;  // share of the bursts by their length
    size_t shortestGap = kPackets;    // received packets between two bursts
};

LossFigures Examine(Scene scene) {
    Random random({3});
    const std::vector<bool> lost = DrawLosses(scene, kPackets, random);
    LossFigures figures;
    figures.rate = static_cast<double>(std::ranges::count(lost, true)) / double(lost.size());
    double bursts = 0;
    size_t run = 1;
    for (size_t i = 1; i < lost.size(); ++i, ++run) {
        if (lost[i] == lost[i - 1]) continue;
        if (lost[i]) {
            if (i != run) figures.shortestGap = std::min(figures.shortestGap, run);
        } else {
            ++figures.bursts[run];
            ++bursts;
        }
        run = 0;
    }
    for (auto &[length, share] : figures.bursts)
        share /= bursts;
    return figures;
}

// Amplitude of a frequency in Hz.
double Amplitude(std::span<const int16_t> samples, double frequency) {
    std::complex<double> sum = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double phase = 2 * std::numbers::pi * frequency * double(i) / Sounds::kRate;
        sum += double{1} * samples[i] * std::polar(1.0, -phase);
    }
    return 2 * std::abs(sum) / double(samples.size());
}

}  // namespace

TEST(Losses, AreThoseThatTheScenePromises) {
    const LossFigures single = Examine(Scene::single);
    EXPECT_NEAR(single.rate, 1 / 13.5, 0.002);
    EXPECT_EQ(single.bursts, (std::map<size_t, double>{{1, 1.0}}));
    EXPECT_EQ(single.shortestGap, 8U);

    LossFigures figures = Examine(Scene::random);
    EXPECT_NEAR(figures.rate, 0.1, 0.004);
    EXPECT_NEAR(figures.bursts[1], 0.9, 0.01);  // the packet after a lost one arrives
    EXPECT_EQ(figures.shortestGap, 1U);

    figures = Examine(Scene::tone);
    EXPECT_NEAR(figures.bursts[1], 0.8, 0.02);
    EXPECT_NEAR(figures.bursts[2], 0.2, 0.02);

    figures = Examine(Scene::longBursts);
    for (const size_t length : {4U, 5U, 6U})
        EXPECT_NEAR(figures.bursts[length], 1.0 / 3, 0.02) << length;
}

// Seconds without more than a stray loss, and seconds that lose a quarter and more.
TEST(Losses, AsRecordedComeInStretches) {
    EXPECT_NEAR(Examine(Scene::recorded).rate, 0.12, 0.01);
    Random random({4});
    const std::vector<bool> lost = DrawLosses(Scene::recorded, kPackets, random);
    constexpr int kSecond = 50;
    int good = 0;
    int bad = 0;
    for (size_t at = 0; at + kSecond <= lost.size(); at += kSecond) {
        const auto begin = lost.begin() + static_cast<std::ptrdiff_t>(at);
        const auto count = std::count(begin, begin + kSecond, true);
        good += count <= 2 ? 1 : 0;
        bad += count >= kSecond / 4 ? 1 : 0;
    }
    const double seconds = double(lost.size()) / kSecond;
    EXPECT_GT(good / seconds, 0.4);  // independent losses of 12 % have 0.05
    EXPECT_GT(bad / seconds, 0.15);  // and 0.01
}

TEST(Sounds, AreToneAndDigitsOfATelephone) {
    const Recording tone = Sounds(Scene::tone, "", 2, 7).Make(0);
    ASSERT_EQ(tone.samples.size(), 2U * Sounds::kRate);
    const double amplitude = Amplitude(tone.samples, 440);
    EXPECT_GT(amplitude, 1000);
    for (size_t i = 0; i < tone.samples.size(); ++i) {
        const double phase = 2 * std::numbers::pi * 440 * double(i) / Sounds::kRate;
        ASSERT_NEAR(tone.samples[i], amplitude * std::sin(phase), 1.5);
    }

    const Sounds sounds(Scene::dtmf, "", 2, 7);
    const Recording digits = sounds.Make(3);
    EXPECT_EQ(digits.samples, sounds.Make(3).samples);
    EXPECT_NE(digits.samples, sounds.Make(4).samples);
    // 80 ms are the shortest digit: this one holds one row's frequency, one column's, and no other.
    const auto digit = std::span(digits.samples).first(80 * Sounds::kRate / 1000);
    std::vector<double> found;
    for (const double frequency : {697, 770, 852, 941, 1209, 1336, 1477, 1633})
        found.push_back(Amplitude(digit, frequency));
    const double row = *std::max_element(found.begin(), found.begin() + 4);
    const double column = *std::max_element(found.begin() + 4, found.end());
    EXPECT_NEAR(20 * std::log10(column / row), 2, 0.3);
    EXPECT_EQ(std::ranges::count_if(found, [&](double a) { return a > row / 4; }), 2);
    EXPECT_GT(std::ranges::count(digits.samples, 0), std::ssize(digits.samples) / 4);  // pauses
}

}  // namespace aiplc::training
