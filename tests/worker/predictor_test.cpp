// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "bench/allocations.h"
#include "worker/classical/autoregressive.h"

namespace {

namespace bench = aiplc::bench;
using aiplc::worker::Autoregressive;
using Window = std::array<int16_t, 2560>;
using Frames = std::vector<size_t>;
using Signal = double (*)(double);

constexpr size_t kFrame = 320;

// Three steady partials and a decaying one, none with a whole number of periods in a frame.
constexpr Signal kChord = [](double i) {
    return 4000 * std::sin(0.0719 * i) + 2500 * std::sin(0.161 * i + 1) +
           1200 * std::sin(0.681 * i + 2) + 6000 * std::exp(-i / 1500) * std::sin(0.384 * i);
};
constexpr Signal kChirp = [](double i) { return 32767 * std::sin(0.02 * i + i * i / 2500); };

Window Make(Signal signal, const Frames &lost, size_t cleared = 0) {
    Window w;
    for (size_t i = 0; i < w.size(); ++i)
        w[i] = static_cast<int16_t>(std::lround(signal(static_cast<double>(i))));
    for (const size_t frame : lost)
        std::fill_n(&w[frame * kFrame], kFrame + cleared, int16_t{0});
    return w;
}

// The same whatever was predicted before, and without an allocation.
Window Filled(const Window &in) {
    static Autoregressive predictor;
    Window first{};
    Window second{};
    const auto before = bench::Allocations();
    predictor.Predict(in, first);
    predictor.Predict(in, second);
    EXPECT_EQ(bench::Allocations(), before);
    EXPECT_EQ(first, second);
    return second;
}

double PowerDb(const Window &w, size_t begin, size_t count) {
    return 10 * std::log10(std::inner_product(&w[begin], &w[begin] + count, &w[begin], 1e-9));
}

double SnrDb(const Window &truth, Window got, size_t begin, size_t count) {
    std::transform(truth.begin(), truth.end(), got.begin(), got.begin(), std::minus<>());
    return PowerDb(truth, begin, count) - PowerDb(got, begin, count);
}

}  // namespace

// A sum of sinusoids obeys a linear recursion exactly, so its missing frames can be computed.
TEST(Autoregressive, RestoresTonesAcrossGapsAndFadesWhereAGapHasNoEnd) {
    const Window chord = Make(kChord, {});
    for (const Frames &lost : {Frames{4, 5}, Frames{5, 6}, Frames{6}, Frames{2, 5}}) {
        for (const size_t frame : lost)
            EXPECT_GT(SnrDb(chord, Filled(Make(kChord, lost)), frame * kFrame, kFrame), 25)
                << frame;
    }
    EXPECT_GT(SnrDb(chord, Filled(Make(kChord, {4, 5}, 16)), 4 * kFrame, 2 * kFrame + 16), 25);
    EXPECT_GT(SnrDb(chord, Filled(Make(kChord, {0})), kFrame - 80, 80), 20);
    const Window faded = Filled(Make(kChord, {5, 6, 7}));
    EXPECT_GT(SnrDb(chord, faded, 5 * kFrame, 80), 25);
    EXPECT_NEAR(PowerDb(faded, 2400, 160) - PowerDb(chord, 2400, 160), -12, 4);
}

// A gap is whole frames, and the 16 cleared samples after them; no other zeros are missing audio.
TEST(Autoregressive, ChangesNothingReceivedBeyondTheJoin) {
    for (const size_t cleared : {0U, 15U, 16U}) {
        for (const Frames &lost : {Frames{}, Frames{0}, Frames{3, 4}, Frames{1, 3, 5}}) {
            Window in = Make(kChirp, lost, cleared);
            std::fill_n(&in[7 * kFrame], 16, int16_t{0});
            Window out = Filled(in);
            for (const size_t at : lost)
                std::copy_n(&in[at * kFrame], kFrame + (cleared == 16 ? 80 : 64),
                            &out[at * kFrame]);
            EXPECT_EQ(out, in) << lost.size() << " frames, cleared " << cleared;
        }
    }
}

// A frame has at most four times the energy of the loudest 5 ms received (6 dB), give or take 1 dB,
// and does not wrap at full scale.
TEST(Autoregressive, StaysBounded) {
    const Signal signals[] = {[](double i) { return std::fmod(i, 100) < 50 ? 32767. : -32768.; },
                              [](double i) { return std::fmod(i, kFrame) < 1 ? 32767. : 0.; },
                              [](double i) { return std::exp(i / 247); }, kChirp};
    for (const Frames &lost : {Frames{1, 3, 5, 7}, Frames{4, 5}, Frames{0, 1, 2, 3, 4, 5, 6},
                               Frames{1, 2, 3, 4, 5, 6, 7}}) {
        for (const Signal signal : signals) {
            const Window in = Make(signal, lost);
            double loudest = 0;
            for (size_t at = 0; at < in.size(); at += 80)
                loudest = std::max(loudest, PowerDb(in, at, 80));
            for (const size_t frame : lost)
                EXPECT_LE(PowerDb(Filled(in), frame * kFrame, kFrame), loudest + 7);
        }
        const Window loud = Filled(Make([](double) { return 32767.; }, lost));
        EXPECT_GT(*std::min_element(loud.begin(), loud.end()), 0);
    }
    EXPECT_EQ(Filled(Window{}), Window{});
}
