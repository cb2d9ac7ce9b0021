// SPDX-License-Identifier: BSD-2-Clause
//
// With a codec and a worker that tell the truth a call through the host's channel sounds as if
// nothing had been lost, in all bands; only the prediction limit is heard.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "host/pipeline_channel.h"
#include "tests/support/ready_adapter.h"

namespace aiplc::host {
namespace {

using Pcm = std::vector<int16_t>;

constexpr int kFrames = 30;
constexpr int kFirstLost = 8;  // frames before it always arrive

// A frame of low-band or PCM samples, silence before the call.
Pcm FrameOf(const Pcm &samples, int frame, size_t length) {
    if (frame < 0) return Pcm(length);
    const auto begin = samples.begin() + frame * static_cast<std::ptrdiff_t>(length);
    return {begin, begin + static_cast<std::ptrdiff_t>(length)};
}

// A gliding pitch with harmonics up to 20 kHz at 48 kHz, to 7 kHz at 16 kHz.
struct Signal {
    explicit Signal(uint32_t sampleRate) : rate(sampleRate), frameSamples(sampleRate / 50) {
        const int harmonics = rate == 48000 ? 100 : 35;
        for (size_t n = 0; n < kFrames * frameSamples; ++n) {
            const double t = static_cast<double>(n) / rate;
            double value = 0;
            for (int h = 1; h <= harmonics; ++h)
                value += std::sin(2 * M_PI * h * (190 * t + 2 * std::sin(3 * t)) + h * h) / 8;
            pcm.push_back(static_cast<int16_t>(4000 * value));
        }
        std::vector<float> bands(pcm.begin(), pcm.end());
        float memory[AIPLC_BANK_TAPS] = {};
        if (rate == 48000) {
            AiPlcThreeBandAnalysis(bands.data(), bands.data(), memory,
                                   static_cast<int32_t>(bands.size()));
        }
        low.assign(bands.begin(), bands.begin() + ptrdiff_t{kFrames} * AIPLC_BAND_SAMPLES);
    }
    uint32_t rate;
    size_t frameSamples;
    Pcm pcm;
    Pcm low;  // the band that the worker sees, 16 kHz
};

// Plays the signal, of which frames kFirstLost.. are lost where losses has a bit set. It is the
// worker too, and fails at every failEvery-th request.
struct Call : ReadyAdapter {
    Call(const Signal &heard, unsigned losses, int failures = 1000)
        : signal(heard), failEvery(failures), channel({.sampleRate = heard.rate, .adapter = this}) {
        for (; tick < kFrames; ++tick) {
            const bool isLost = tick >= kFirstLost && (losses >> (tick - kFirstLost) & 1) != 0;
            const Pcm truth = FrameOf(signal.pcm, tick, signal.frameSamples);
            const int before = requests;
            if (isLost) {
                channel.ApplyLost(
                    [&truth](std::span<int16_t> out) { std::ranges::copy(truth, out.begin()); });
            } else {
                channel.ApplyReceived(truth, 1105);
            }
            EXPECT_LE(requests, before + 1) << losses;
            const auto out = channel.OutputSamples();
            output.insert(output.end(), out.begin(), out.end());
            const PipelineChannel::Decision &decision = channel.LastDecision();
            EXPECT_EQ(decision.requested, requests > before);
            looks += decision.secondLook == HistoryEditor::SecondLook::filled ? 1 : 0;
            types.push_back(channel.Output().pktType);
            // The library fades out of a prediction of the low band only, when a burst's second
            // request fails.
            const bool isComparable = signal.rate == 16000 || !channel.Output().fusedFromPredict;
            comparable.insert(comparable.end(), signal.frameSamples, isComparable);
        }
    }
    // The window lies in the call where most of its samples that are not missing are true; what a
    // mute or the settling of the bank has left in it is not.
    int Process(InoutDetail &record, int /*timeoutMs*/) override {
        if (++requests % failEvery == 0) return -1;
        int16_t window[AIPLC_WINDOW_SAMPLES];
        std::memcpy(window, record.AudioIn, sizeof window);
        int fewestWrong = AIPLC_WINDOW_SAMPLES;
        for (int newest = tick; newest >= tick - 2; --newest) {
            Pcm truth;
            for (int frame = newest - AIPLC_WINDOW_FRAMES + 1; frame <= newest; ++frame)
                std::ranges::copy(FrameOf(signal.low, frame, AIPLC_BAND_SAMPLES),
                                  std::back_inserter(truth));
            int wrong = 0;
            for (size_t i = 0; i < truth.size(); ++i)
                wrong += window[i] != 0 && std::abs(window[i] - truth[i]) > 1 ? 1 : 0;
            if (wrong >= fewestWrong) continue;
            fewestWrong = wrong;
            std::memcpy(record.AudioOut, truth.data(), sizeof record.AudioOut);
        }
        EXPECT_LT(fewestWrong, 2 * AIPLC_BAND_SAMPLES) << tick;
        return 0;
    }

    const Signal &signal;
    int failEvery;
    int tick = 0;  // the frame that is being handed in
    int requests = 0;
    int looks = 0;
    Pcm output;
    std::vector<bool> comparable;     // samples of output, with a loss-free call's
    std::vector<AiPlcPktType> types;  // of its frames
    PipelineChannel channel;
};

int WorstDeviation(const Call &call, const Call &lossFree) {
    int worst = 0;
    for (size_t i = 0; i < call.output.size(); ++i)
        if (call.comparable[i])
            worst = std::max(worst, std::abs(call.output[i] - lossFree.output[i]));
    return worst;
}

// A bit for every run of so many losses.
unsigned Runs(unsigned losses, int length) {
    for (unsigned shifted = losses; --length > 0;)
        losses &= shifted >>= 1;
    return losses;
}

TEST(HistoryEditor, LossesAreNotHeardInAnyBandWhenCodecAndWorkerTellTheTruth) {
    for (const uint32_t rate : {16000U, 48000U}) {
        const Signal signal(rate);
        const Call lossFree(signal, 0);
        ASSERT_EQ(lossFree.requests, 0);
        const unsigned patterns = rate == 16000 ? 1U << 11 : 1U << 8;
        for (unsigned losses = 1; losses < patterns; ++losses) {
            if (Runs(losses, 6) != 0) continue;
            const Call call(signal, losses);
            // Single losses leave nothing: the bands are the loss-free ones. Behind longer ones two
            // truncated products of a cross-fade do, and the codec path's one more rounding in the
            // bank.
            const int most = Runs(losses, 2) == 0 ? 0 : rate == 16000 ? 1 : 4;
            ASSERT_LE(WorstDeviation(call, lossFree), most) << rate << ", " << losses;
            ASSERT_TRUE(call.looks > 0 || Runs(losses, 2) != 0) << losses;
            // A prediction after a frame that the codec concealed starts from a bank whose low band
            // was silent; the fade weighs its first 48 samples with at most 5 %.
            ASSERT_LE(WorstDeviation(Call(signal, losses, 2), lossFree), rate == 16000 ? 1 : 100)
                << rate << ", " << losses;
        }
    }
}

TEST(HistoryEditor, AMutedFrameIsSilentInAllBandsUntilTheGapEnds) {
    const Signal signal(48000);
    const Call lossFree(signal, 0);
    const Call call(signal, 0x3FFF);  // frames 8 to 21
    const auto mute = std::find(call.types.begin() + kFirstLost, call.types.end(), PKT_MUTE);
    ASSERT_NE(mute, call.types.end());
    const auto frame = mute - call.types.begin();
    ASSERT_EQ(frame, kFirstLost + 5 + 3);  // the sixth lost one, three calls later
    // It fades out to nothing, and the frame behind it, which nobody fills, has only the bank's
    // 48 samples of memory.
    const auto peak = [&call](std::ptrdiff_t begin, std::ptrdiff_t end) {
        int highest = 0;
        for (std::ptrdiff_t i = begin; i < end; ++i)
            highest = std::max(highest, std::abs(int{call.output[static_cast<size_t>(i)]}));
        return highest;
    };
    EXPECT_GT(peak(frame * 960, frame * 960 + 480), 1000);
    EXPECT_LT(peak((frame + 1) * 960 - 48, (frame + 1) * 960), 1000);
    EXPECT_EQ(call.types[static_cast<size_t>(frame) + 1], PKT_LOST);
    EXPECT_EQ(peak((frame + 1) * 960 + 48, (frame + 2) * 960), 0);
    // The second received frame behind the gap is whole again, but for what the bank carries over
    // from the end of the upper bands' fade.
    const auto back = static_cast<size_t>(kFirstLost + 14 + 3 + 1) * 960;
    for (size_t i = back; i < call.output.size(); ++i)
        ASSERT_NEAR(call.output[i], lossFree.output[i], 100) << i;
}

}  // namespace
}  // namespace aiplc::host
