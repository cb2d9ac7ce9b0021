// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/steady_sound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

namespace aiplc::worker {
namespace {

using Window = std::array<int16_t, kWindowSamples>;
using Sound = std::function<double(double)>;

constexpr size_t kBegin = 1600;
constexpr size_t kJoin = 64;

// Two tones of unequal level.
double Digit(double i) {
    return 4000 * std::sin(0.3023 * i) + 5000 * std::sin(0.5246 * i + 1);
}

Window Make(const Sound &sound, double noise = 0) {
    std::minstd_rand random(5);
    std::uniform_real_distribution<double> draw(-std::sqrt(3.0), std::sqrt(3.0));
    Window window;
    for (size_t i = 0; i < window.size(); ++i)
        window[i] = static_cast<int16_t>(std::lround(sound(double(i)) + noise * draw(random)));
    return window;
}

struct Continuation {
    bool isSteady = false;
    Window classic{};  // before
    Window out{};
};

Continuation Continue(Window window, size_t gapBegin, size_t gapEnd) {
    std::fill(window.begin() + gapBegin, window.begin() + gapEnd, int16_t{0});
    static Candidates candidates;
    static SteadySound steady;
    Continuation prediction;
    EXPECT_TRUE(candidates.Make(window, prediction.classic));
    prediction.out = prediction.classic;
    prediction.isSteady = steady.Continue(candidates, prediction.out);
    return prediction;
}

double Power(const Window &samples, const Sound &less, size_t begin, size_t end) {
    double sum = 0;
    for (size_t i = begin; i < end; ++i)
        sum += std::pow(samples[i] - less(double(i)), 2);
    return sum / double(end - begin);
}

}  // namespace

// As a SILK decoder does it: the first frame is at a quarter, in another phase.
TEST(SteadySound, GoesOnWhateverTheDecoderMakesOfTheFrameBehindTheGap) {
    for (const size_t end : {kBegin + 320, kBegin + 336, kBegin + 640}) {
        Window window = Make(Digit);
        const size_t broken = end / 320 * 320;
        for (size_t i = broken; i < broken + 320; ++i)
            window[i] = static_cast<int16_t>(std::lround(Digit(double(i) + 40) / 4));
        const Continuation prediction = Continue(window, kBegin, end);
        EXPECT_TRUE(prediction.isSteady) << end;
        const double power = Power(
            window, [](double) { return 0; }, 0, kBegin);
        EXPECT_LT(Power(prediction.out, Digit, kBegin, end), 0.003 * power) << end;  // -25 dB
        EXPECT_GT(Power(prediction.classic, Digit, kBegin, end), 0.1 * power) << end;
        // Before the gap and behind the join everything is as received.
        EXPECT_TRUE(std::equal(window.begin(), window.begin() + kBegin, prediction.out.begin()));
        EXPECT_TRUE(std::equal(window.begin() + end + kJoin, window.end(),
                               prediction.out.begin() + end + kJoin));
    }
}

// The noise that comes with it goes on too, beside the error that it causes in the extrapolation,
// and makes it unsteady from 20 dB below it on.
TEST(SteadySound, KeepsItsNoise) {
    const double rms = std::sqrt((4000.0 * 4000 + 5000.0 * 5000) / 2);
    const double noise = rms * std::pow(10, -25.0 / 20);
    const Continuation prediction = Continue(Make(Digit, noise), kBegin, kBegin + 640);
    EXPECT_TRUE(prediction.isSteady);
    const double made = Power(prediction.out, Digit, kBegin, kBegin + 640) / (noise * noise);
    EXPECT_GT(made, 0.7);
    EXPECT_LT(made, 8);
    EXPECT_FALSE(Continue(Make(Digit, 3 * noise), kBegin, kBegin + 320).isSteady);
}

TEST(SteadySound, LeavesWhatIsNotSteadyAsItIs) {
    const auto gliding = [](double i) { return 6000 * std::sin(0.1 * i + i * i / 40000); };
    const auto settingIn = [](double i) { return i < 1400 ? 0 : Digit(i); };
    const auto quiet = [](double i) { return Digit(i) / 700; };
    const auto speech = [](double i) {
        return 8000 * std::exp(-std::fmod(i * (1 + i / 30000), 120) / 20) * std::sin(0.3 * i);
    };
    for (const Sound &sound : {Sound(gliding), Sound(settingIn), Sound(quiet), Sound(speech)}) {
        const Continuation prediction = Continue(Make(sound), kBegin, kBegin + 320);
        EXPECT_FALSE(prediction.isSteady);
        EXPECT_EQ(prediction.out, prediction.classic);
    }
    // Without a far side a steady sound may end any moment.
    EXPECT_FALSE(Continue(Make(Digit), kBegin, kWindowSamples).isSteady);
}

}  // namespace aiplc::worker
