// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <new>
#include <numeric>
#include <vector>

#include "autoregressive.h"

static size_t allocations = 0;

// Not inlined: the compiler would take free() for the wrong partner of operator new.
[[gnu::noinline]] void *operator new(size_t size) {
    ++allocations;
    if (void *memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, size_t) noexcept {
    std::free(memory);
}

namespace {

using Window = std::array<int16_t, 2560>;
using Frames = std::vector<size_t>;
using Signal = double (*)(double);

constexpr size_t kFrame = 320;

// Three steady partials and a decaying one, none with a whole number of periods in a frame.
double Chord(double i) {
    return 4000 * std::sin(0.0719 * i) + 2500 * std::sin(0.161 * i + 1) +
           1200 * std::sin(0.681 * i + 2) + 6000 * std::exp(-i / 1500) * std::sin(0.384 * i);
}
double Tone(double i) {
    return 8000 * std::sin(0.122 * i);
}
double Chirp(double i) {
    return 32767 * std::sin(0.02 * i + i * i / 2500);
}
double Clipped(double i) {
    return std::clamp(45000 * std::sin(0.05 * i), -32768., 32767.);
}

Window Make(Signal signal, const Frames &lost, size_t cleared = 0) {
    Window w;
    for (size_t i = 0; i < w.size(); ++i)
        w[i] = static_cast<int16_t>(std::lround(signal(static_cast<double>(i))));
    for (const size_t frame : lost)
        std::fill_n(&w[frame * kFrame], kFrame + cleared, int16_t{0});
    return w;
}

Window Filled(const Window &window) {
    aiplc::worker::Autoregressive predictor;
    Window out{};
    predictor.Predict(window, out);
    return out;
}

double Power(const Window &w, size_t begin, size_t count) {
    return std::inner_product(&w[begin], &w[begin] + count, &w[begin], 0.0) /
           static_cast<double>(count);
}

double SnrDb(const Window &truth, Window got, size_t begin, size_t count) {
    std::transform(truth.begin(), truth.end(), got.begin(), got.begin(), std::minus<>());
    return 10 * std::log10(Power(truth, begin, count) / (Power(got, begin, count) + 1e-3));
}

}  // namespace

// A sum of sinusoids obeys a linear recursion exactly, so its missing frames can be computed.
TEST(Autoregressive, RestoresTonesAcrossHoles) {
    const Window chord = Make(Chord, {});
    for (const Frames &lost : {Frames{4, 5}, Frames{5, 6}, Frames{6}, Frames{2, 5}}) {
        const Window out = Filled(Make(Chord, lost));
        for (const size_t frame : lost)
            EXPECT_GT(SnrDb(chord, out, frame * kFrame, kFrame), 25) << frame;
    }
    EXPECT_GT(SnrDb(chord, Filled(Make(Chord, {4, 5}, 16)), 4 * kFrame, 2 * kFrame + 16), 25);
    EXPECT_GT(SnrDb(chord, Filled(Make(Chord, {0})), kFrame - 80, 80), 20);
}

// A hole is whole frames, and the 16 cleared samples after them; no other zeros are missing audio.
TEST(Autoregressive, ChangesNothingReceivedBeyondTheJoin) {
    for (const size_t cleared : {0U, 15U, 16U}) {
        for (const Frames &lost : {Frames{}, Frames{0}, Frames{3, 4}, Frames{1, 3, 5}}) {
            Window in = Make(Chirp, lost, cleared);
            std::fill_n(&in[7 * kFrame], 16, int16_t{0});
            Window out = Filled(in);
            for (const size_t frame : lost) {
                EXPECT_GT(Power(out, frame * kFrame, kFrame), 0);
                std::copy_n(&in[frame * kFrame], kFrame + 64 + cleared / 16 * 16,
                            &out[frame * kFrame]);
            }
            EXPECT_EQ(out, in) << lost.size() << " frames, cleared " << cleared;
        }
    }
    EXPECT_EQ(Filled(Window{}), Window{});
}

TEST(Autoregressive, FadesWhereTheHoleHasNoEnd) {
    const Window tone = Make(Tone, {});
    const Window out = Filled(Make(Tone, {5, 6, 7}));
    EXPECT_GT(SnrDb(tone, out, 5 * kFrame, 80), 30);
    double power = 32e6 * 1.1;  // half the amplitude squared
    for (size_t at = 5 * kFrame; at < out.size(); at += kFrame / 2) {
        EXPECT_LT(Power(out, at, kFrame / 2), power);
        power = Power(out, at, kFrame / 2);
    }
    EXPECT_NEAR(10 * std::log10(power / 32e6), -12, 4);
}

// No power above the loudest 5 ms received, give or take 1 dB, and no wrap at full scale.
TEST(Autoregressive, StaysBounded) {
    const Signal signals[] = {[](double i) { return std::fmod(i, 100) < 50 ? 32767. : -32768.; },
                              [](double i) { return std::fmod(i, kFrame) < 1 ? 32767. : 0.; },
                              [](double i) { return std::fmod(i, kFrame) < 1 ? 1. : 0.; },
                              [](double i) { return std::exp(i / 247); }, Chirp};
    for (const Frames &lost : {Frames{1, 3, 5, 7}, Frames{4, 5}, Frames{5, 6, 7},
                               Frames{0, 1, 2, 3, 4, 5, 6}, Frames{1, 2, 3, 4, 5, 6, 7}}) {
        for (const Signal signal : signals) {
            const Window in = Make(signal, lost);
            double loudest = 1;
            for (size_t at = 0; at < in.size(); at += 80)
                loudest = std::max(loudest, Power(in, at, 80));
            const Window out = Filled(in);
            for (const size_t frame : lost)
                EXPECT_LE(Power(out, frame * kFrame, kFrame), 1.25 * loudest);
        }
        for (const int16_t s : Filled(Make([](double) { return 32767.; }, lost)))
            EXPECT_GT(s, 0);
        const Window clipped = Filled(Make(Clipped, lost));
        for (size_t i = 1; i < clipped.size(); ++i)
            EXPECT_LT(std::abs(clipped[i] - clipped[i - 1]), 20000);
    }
}

TEST(Autoregressive, DependsOnTheWindowAloneAndAllocatesNothing) {
    const Window windows[] = {Make(Chord, {4, 5}), Make(Chirp, {1, 3, 5, 7}), Make(Tone, {6, 7})};
    aiplc::worker::Autoregressive used;
    for (const size_t i : {0U, 1U, 2U, 1U, 0U}) {
        Window out{};
        const size_t before = allocations;
        used.Predict(windows[i], out);
        EXPECT_EQ(allocations, before);
        EXPECT_EQ(out, Filled(windows[i]));
    }
}
