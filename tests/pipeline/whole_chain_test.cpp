// SPDX-License-Identifier: BSD-2-Clause
//
// With a codec whose concealment tells the truth and a worker that tells the truth, the output is
// the delayed input whatever is lost.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "pipeline/scripted_host.h"

namespace {

constexpr int kLookAhead = 3;
constexpr int kBankDelay = 44;  // samples at 48 kHz

// Voiced-like: harmonics of a gliding pitch, well inside the lowest band.
int16_t Signal(int64_t n, int rate) {
    const double t = static_cast<double>(n) / rate;
    const double phase = 2 * M_PI * (180 * t + 8 * std::sin(3 * t));
    double value = 0;
    for (int h = 1; h <= 12; ++h)
        value += std::sin(h * phase + h) / h;
    return static_cast<int16_t>(4000 * value);
}

Samples SignalFrame(int frame, int rate) {
    Samples samples(static_cast<size_t>(rate / 50));
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] =
            Signal(static_cast<int64_t>(frame) * rate / 50 + static_cast<int64_t>(i), rate);
    }
    return samples;
}

// The 16 kHz signal of every frame of a call: the input itself, or its lowest band at 48 kHz.
std::vector<Samples> LowBands(int frames, int rate) {
    std::vector<Samples> bands;
    float state[AIPLC_BANK_TAPS] = {};
    for (int f = 0; f < frames; ++f) {
        Samples samples = SignalFrame(f, rate);
        if (rate == 48000) {
            float split[960];
            AiPlcShort2Float(samples.data(), split, 960);
            AiPlcThreeBandAnalysis(split, split, state, 960);
            samples.resize(320);
            AiPlcFloat2Short(split, samples.data(), 320);
        }
        bands.push_back(samples);
    }
    return bands;
}

class TruthfulWorker : public AiplcAdapterInterface {
  public:
    TruthfulWorker(const StAiPlcChannel &channel, const std::vector<Samples> &bands)
        : m_channel(channel), m_bands(bands) {}
    int Create() override { return 0; }
    int Init() override { return 0; }
    int Delete() override { return 0; }
    int Process(InoutDetail &record, int timeoutMs) override {
        EXPECT_EQ(timeoutMs, 16);
        EXPECT_EQ(record.inferArg, 1);
        ++requests;
        int newest = tick;
        for (const AiPlcPkt *node = m_channel.historyRing->head; node != m_channel.inferStart;
             node = node->prev) {
            --newest;
        }
        for (int slot = 0; slot < 8; ++slot) {
            const int frame = newest - 7 + slot;
            const Samples truth = frame < 0 ? Samples(320) : m_bands[static_cast<size_t>(frame)];
            std::memcpy(record.AudioOut + 640 * slot, truth.data(), 640);
        }
        return 0;
    }
    int tick = 0;  // frame index of the history's head
    int requests = 0;

  private:
    const StAiPlcChannel &m_channel;
    const std::vector<Samples> &m_bands;
};

struct Deviation {
    int worst = 0;
    int muted = 0;
    int requests = 0;
};

// Runs a call whose frames 5.. are lost where pattern has a bit set; late: a single loss arrives
// with the next frame instead.
Deviation RunCall(int rate, unsigned pattern, int bits, bool late) {
    const int frames = 5 + bits + 10;
    static std::vector<Samples> bands16K = LowBands(64, 16000);
    static std::vector<Samples> bands48K = LowBands(64, 48000);
    ScriptedHost host(rate == 48000);
    TruthfulWorker worker(host.Channel(), rate == 48000 ? bands48K : bands16K);
    host.Channel().adapter = &worker;
    int tick = 0;
    host.conceal = [&](AiPlcDecodeRequest &request) {
        const Samples truth = SignalFrame(tick, rate);
        std::memcpy(request.pcmOut, truth.data(), truth.size() * sizeof(int16_t));
        request.pcmOutSamples = static_cast<uint16_t>(truth.size());
        return 0;
    };
    const auto isLost = [&](int f) { return f >= 5 && f < 5 + bits && (pattern >> (f - 5) & 1); };

    Deviation deviation;
    bool afterMute = false;
    for (; tick < frames; ++tick) {
        worker.tick = tick;
        if (isLost(tick)) {
            EXPECT_EQ(host.Lose(), 0);
        } else if (late && isLost(tick - 1)) {
            EXPECT_EQ(host.Receive({{tick - 1, SignalFrame(tick - 1, rate)},
                                    {tick, SignalFrame(tick, rate)}}),
                      0);
        } else {
            EXPECT_EQ(host.Receive({{tick, SignalFrame(tick, rate)}}), 0);
        }
        const Samples out = host.Take();
        if (tick < kLookAhead + 1) continue;
        const bool muted = host.Played().pktType == PKT_MUTE || host.Played().pktType == PKT_LOST;
        deviation.muted += muted ? 1 : 0;
        // The bank's memory carries a mute into the frame after it.
        if (muted || (afterMute && rate == 48000)) {
            afterMute = muted;
            continue;
        }
        afterMute = false;
        const int delay = rate == 48000 ? kBankDelay : 0;
        for (size_t i = 0; i < out.size(); ++i) {
            const int64_t n = static_cast<int64_t>(tick - kLookAhead) * rate / 50 +
                              static_cast<int64_t>(i) - delay;
            deviation.worst = std::max(deviation.worst, std::abs(out[i] - Signal(n, rate)));
        }
    }
    deviation.requests = worker.requests;
    return deviation;
}

// Losses in a row that end in a silent frame: the sixth of seven or more.
bool HasLongBurst(unsigned pattern) {
    unsigned run = pattern;
    for (int i = 1; i < 7; ++i)
        run &= pattern >> i;
    return run != 0;
}

}  // namespace

TEST(WholeChain, OutputAt16KIsTheDelayedInputForEveryLossPattern) {
    constexpr int kBits = 11;
    int requests = 0;
    for (unsigned pattern = 0; pattern < 1U << kBits; ++pattern) {
        const Deviation deviation = RunCall(16000, pattern, kBits, false);
        // Two products truncated in a cross-fade of equal frames.
        ASSERT_LE(deviation.worst, 1) << pattern;
        ASSERT_EQ(deviation.muted > 0, HasLongBurst(pattern)) << pattern;
        requests += deviation.requests;
    }
    EXPECT_GT(requests, 1 << kBits);
}

TEST(WholeChain, OutputAt48KIsTheDelayedInputWithinTheBanksError) {
    constexpr int kBits = 8;
    const int clean = RunCall(48000, 0, kBits, false).worst;
    // The bank returns 0 Hz 6.5 % low and 1 kHz within 1 %; the signal peaks at 10000.
    EXPECT_LT(clean, 650);
    for (unsigned pattern = 0; pattern < 1U << kBits; ++pattern) {
        const Deviation deviation = RunCall(48000, pattern, kBits, false);
        ASSERT_LE(deviation.worst, clean + 8) << pattern;
    }
}

TEST(WholeChain, LateFramesTakeTheirPlaceWithoutTheWorker) {
    // Single losses whose packet comes with the next one.
    for (const unsigned pattern : {0b1U, 0b101U, 0b1001001U}) {
        const Deviation deviation = RunCall(16000, pattern, 8, true);
        EXPECT_EQ(deviation.worst, 0) << pattern;
        EXPECT_EQ(deviation.requests, 0) << pattern;
    }
}
