// SPDX-License-Identifier: BSD-2-Clause
//
// With a codec and a worker that tell the truth the output is the delayed input, whatever is lost.

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include "tests/support/ready_adapter.h"
#include "tests/support/scripted_host.h"

namespace {

constexpr int kFrames = 26;

Samples Frame(const Samples &samples, int frame) {
    const ptrdiff_t length = samples.size() < 24960 ? 320 : 960;
    return {samples.begin() + frame * length, samples.begin() + (frame + 1) * length};
}

class WholeChain : public testing::TestWithParam<std::tuple<bool, bool>> {
  public:
    // Voiced-like: harmonics of a gliding pitch, well inside the lowest band.
    WholeChain() {
        // Thousands of channels, one after the other: the heap must not give its pages back each
        // time.
        mallopt(M_TRIM_THRESHOLD, 1 << 26);
        const int rate = is48K ? 48000 : 16000;
        for (int n = 0; n < kFrames * rate / 50; ++n) {
            const double t = static_cast<double>(n) / rate;
            double value = 0;
            for (int h = 1; h <= 12; ++h)
                value += std::sin(2 * M_PI * h * (180 * t + 8 * std::sin(3 * t)) + h) / h;
            input.push_back(static_cast<int16_t>(4000 * value));
            heard.push_back(input.back());
        }
        const auto total = static_cast<int32_t>(input.size());
        std::vector<float> bands(input.begin(), input.end());
        float state[91] = {};
        if (is48K) AiPlcThreeBandAnalysis(bands.data(), bands.data(), state, total);
        low.insert(low.end(), bands.begin(), bands.begin() + 8320);
        const float *taps = is48K ? g_aiplcLowPassCoeff48K : g_aiplcLowPassCoeff16K;
        float lowPass[91] = {};
        if (narrowband) AiPlcFir(heard.data(), lowPass, taps, total, is48K ? 91 : 31);
    }
    const bool is48K = std::get<0>(GetParam());
    const bool narrowband = std::get<1>(GetParam());
    Samples input;
    Samples low = Samples(2560);              // the lowest band, behind eight frames of silence
    Samples heard = Samples(is48K ? 44 : 0);  // what the filters make of the input
};
INSTANTIATE_TEST_SUITE_P(Rates, WholeChain, testing::Combine(testing::Bool(), testing::Bool()));

// Runs a call whose frames 5.. are lost where pattern has a bit set; late: they come with the next
// frame that does. It is the worker too, and fails at every failEvery-th request.
struct Call : ReadyAdapter {
    Call(const WholeChain &chain, unsigned pattern, bool late = false, int failures = 1000)
        : signal(chain), failEvery(failures), host(chain.is48K) {
        host.channel.adapter = this;
        host.bandwidth = signal.narrowband ? 1101 : 1105;
        host.conceal = [this](AiPlcDecodeRequest &request) {
            const Samples truth = Frame(signal.input, tick);
            std::ranges::copy(truth, request.pcmOut);
            request.pcmOutSamples = static_cast<uint16_t>(truth.size());
            return 0;
        };
        bool afterMute = false;
        std::vector<std::pair<int, Samples>> arriving;
        for (; tick < kFrames; ++tick) {
            const bool lost = tick >= 5 && (pattern >> (tick - 5) & 1) != 0;
            if (!lost || late) arriving.emplace_back(tick, Frame(signal.input, tick));
            EXPECT_EQ(lost ? host.Lose() : host.Receive(arriving), 0);
            if (!lost) arriving.clear();
            const Samples out = host.Take();
            if (tick < 4) continue;
            Samples expected = Frame(signal.heard, tick - 3);
            EXPECT_EQ(out.size(), expected.size());
            const AiPlcPktType type = host.channel.outputRing->head->pktType;
            const bool silent = type == PKT_MUTE || type == PKT_LOST;
            if (type == PKT_LOST) expected.assign(expected.size(), 0);
            if (type == PKT_MUTE) AiPlc16kFadeOut(expected.data());
            // The filters' memories carry a mute into the frame after it.
            const bool filtered = signal.is48K || signal.narrowband;
            for (size_t i = 0; i < out.size() && !(filtered && (silent || afterMute)); ++i)
                worst = std::max(worst, std::abs(out[i] - expected[i]));
            afterMute = silent;
            muted += silent ? 1 : 0;
        }
    }
    int Process(InoutDetail &record, int timeoutMs) override {
        EXPECT_EQ(timeoutMs, 16);
        EXPECT_EQ(record.inferArg, 1);
        if (++requests % failEvery == 0) return -6;
        const int16_t *window = &signal.low[320 * static_cast<size_t>(tick + 1)];
        for (const AiPlcPkt *node = host.channel.historyRing->head; node != host.channel.inferStart;
             node = node->prev)
            window -= 320;
        std::memcpy(record.AudioOut, window, 5120);
        return 0;
    }

    const WholeChain &signal;
    int failEvery;
    ScriptedHost host;
    int tick = 0;   // frame index of the history's head
    int worst = 0;  // deviation
    int muted = 0;  // frames
    int requests = 0;
};

// A bit for every run of so many losses, at its first one.
unsigned Runs(unsigned pattern, int length) {
    for (unsigned shifted = pattern; --length > 0;)
        pattern &= shifted >>= 1;
    return pattern;
}

}  // namespace

TEST_P(WholeChain, OutputIsTheDelayedInputForEveryLossPattern) {
    const int clean = Call(*this, 0).worst;
    // The bank returns 0 Hz 6.5 % low and 1 kHz within 1 %; the signal peaks at 10000.
    EXPECT_LE(clean, is48K ? 650 : 0);
    // Two products are truncated in a cross-fade; a prediction after codec audio starts from a
    // silent low-pass, faded in by 31 / 320 meanwhile.
    const int most = clean + (is48K ? 8 : narrowband ? 100 : 1);
    const unsigned patterns = 1U << (narrowband ? 7 : is48K ? 8 : 11);
    for (unsigned pattern = 0; pattern < patterns; ++pattern) {
        const Call call(*this, pattern);
        ASSERT_LE(call.worst, most) << pattern;
        ASSERT_TRUE(call.requests > 0 || Runs(pattern, 2) == 0) << pattern;
        ASSERT_LE(Call(*this, pattern, false, 2).worst, most) << pattern;
        // The sixth frame of a longer burst is faded out. The call after that decides again only
        // when it brings a packet.
        const unsigned burst = Runs(pattern, 7);
        const unsigned undecided = burst == 0 ? 0 : pattern >> (std::countr_zero(burst) + 9) & 1;
        ASSERT_EQ(call.muted, burst == 0 ? 0 : 1 + undecided) << pattern;
        if (is48K || Runs(pattern, 4) != 0) continue;
        const Call late(*this, pattern, true);
        ASSERT_EQ(late.worst, 0) << pattern;
        ASSERT_EQ(late.requests, 0) << pattern;
    }
}
