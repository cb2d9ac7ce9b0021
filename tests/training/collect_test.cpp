// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/host/call.h"
#include "training/collect/call_plan.h"
#include "training/collect/call_windows.h"
#include "training/collect/loss_plan.h"

namespace aiplc::training {
namespace {

constexpr size_t kFrame = AIPLC_BAND_SAMPLES;

// Each pattern with 40 received packets before it; 1 = lost.
std::vector<bool> LossesAs(std::initializer_list<const char *> patterns) {
    std::vector<bool> lost;
    for (const char *pattern : patterns) {
        lost.insert(lost.end(), 40, false);
        for (const char *c = pattern; *c != 0; ++c)
            lost.push_back(*c == '1');
    }
    lost.insert(lost.end(), 20, false);
    return lost;
}

// These lead to requests of all five modes.
std::vector<bool> LossesOfAllModes() {
    return LossesAs({"11", "1101", "111", "11101"});
}

CallSetup LowDelayCall(uint32_t outputRate) {
    CallSetup setup;
    setup.sender.sampleRate = outputRate;
    // CELT alone decodes exactly again some frames after a loss.
    setup.sender.application = host::SenderApplication::lowDelay;
    setup.sender.bitrate = 64000;
    setup.outputRate = outputRate;
    return setup;
}

CallResult PlayAllModes(uint32_t outputRate, double truthShare) {
    CallSetup setup = LowDelayCall(outputRate);
    setup.lost = LossesOfAllModes();
    setup.answer = MixTruth(truthShare);
    return CollectWindows(setup, host::SpeechLike(outputRate, 3.8));
}

size_t FirstGap(const WindowRecord &record) {
    for (size_t slot = 0; slot < AIPLC_WINDOW_FRAMES; ++slot) {
        const int16_t *frame = &record.window[slot * kFrame];
        if (std::all_of(frame, frame + kFrame, [](int16_t s) { return s == 0; })) return slot;
    }
    return AIPLC_WINDOW_FRAMES;
}

class Collect : public testing::TestWithParam<uint32_t> {};

TEST_P(Collect, WindowsOfAllModesLieOnTheirTarget) {
    const CallResult result = PlayAllModes(GetParam(), 1);
    std::set<int> modes;
    EXPECT_EQ(result.ambiguous, 0U);
    for (const WindowRecord &record : result.windows) {
        modes.insert(record.mode);
        const size_t gap = FirstGap(record);
        ASSERT_LT(gap, size_t{AIPLC_WINDOW_FRAMES});
        EXPECT_FALSE(record.received >> gap & 1);
        // Received frames are exact, and earlier answers were the truth.
        int worst = 0;
        for (size_t i = 0; i < gap * kFrame; ++i)
            worst = std::max(worst, std::abs(record.window[i] - record.target[i]));
        EXPECT_LE(worst, 8) << "mode " << int{record.mode} << ", frame " << record.newestFrame;
    }
    EXPECT_EQ(modes, (std::set<int>{1, 2, 3, 4, 5}));
}

TEST_P(Collect, EarlierAnswersAreInLaterWindows) {
    const CallResult truth = PlayAllModes(GetParam(), 1);
    const CallResult classic = PlayAllModes(GetParam(), 0);
    ASSERT_EQ(truth.windows.size(), classic.windows.size());
    int different = 0;
    for (size_t i = 0; i < truth.windows.size(); ++i) {
        EXPECT_EQ(truth.windows[i].target, classic.windows[i].target);
        if (truth.windows[i].window != classic.windows[i].window) ++different;
    }
    // Modes 1 and 2 follow a request for the frames before theirs.
    EXPECT_GE(different, 2);
}

// The second single loss of a pair is not there yet when the first one is asked for.
TEST_P(Collect, SecondLooksAreMarkedAndHaveTheirSingleGap) {
    CallSetup setup = LowDelayCall(GetParam());
    setup.lost = LossesAs({"1", "101"});
    setup.answer = MixTruth(1);
    const std::vector<int16_t> speech = host::SpeechLike(GetParam(), 2.5);
    const CallResult result = CollectWindows(setup, speech);
    const int modes[] = {AIPLC_INFER_GAP1_AHEAD2, AIPLC_INFER_GAP1_AHEAD1, AIPLC_INFER_GAP1_AHEAD2};
    const uint32_t lost[] = {40, 81, 83};
    ASSERT_EQ(result.windows.size(), std::size(modes));
    for (size_t i = 0; i < std::size(modes); ++i) {
        const WindowRecord &record = result.windows[i];
        EXPECT_EQ(record.flags, WindowRecord::kSecondLook);
        EXPECT_EQ(record.mode, modes[i]);
        const size_t gap = modes[i] == AIPLC_INFER_GAP1_AHEAD1 ? 6 : 5;
        EXPECT_EQ(FirstGap(record), gap);
        EXPECT_EQ(record.newestFrame, lost[i] + 7 - gap);
        EXPECT_EQ(result.sources.at(lost[i]), AIPLC_SOURCE_SECOND_LOOK);
        EXPECT_FALSE(record.received >> gap & 1);
        for (size_t at = 0; at < gap * kFrame; ++at)
            ASSERT_NEAR(record.window[at], record.target[at], 8) << i << ' ' << at;
    }
    setup.secondLook = false;
    EXPECT_EQ(CollectWindows(setup, speech).windows.size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Rates, Collect, testing::Values(16000U, 48000U));

TEST(CollectTest, RefusedRequestsLeaveTheCallToTheCodec) {
    CallSetup setup;
    setup.sender.sampleRate = 16000;
    setup.lost = LossesOfAllModes();
    const std::vector<int16_t> speech = host::SpeechLike(16000, 3.8);
    const std::vector<int16_t> answered = CollectWindows(setup, speech).output;
    setup.refuse = true;
    EXPECT_NE(CollectWindows(setup, speech).output, answered);
}

// Seconds without more than a stray loss, and seconds that lose a quarter and more.
TEST(Losses, AsRecordedComeInStretches) {
    constexpr size_t kPackets = 200000;
    constexpr size_t kSecond = 50;
    Random random({4});
    const std::vector<bool> lost = DrawLosses(Scene::recorded, kPackets, random);
    EXPECT_NEAR(double(std::ranges::count(lost, true)) / kPackets, 0.12, 0.01);
    int good = 0;
    int bad = 0;
    for (auto second = lost.begin(); second < lost.begin() + kPackets; second += kSecond) {
        const auto count = std::count(second, second + kSecond, true);
        good += count <= 2 ? 1 : 0;
        bad += count >= 13 ? 1 : 0;
    }
    constexpr double kSeconds = double(kPackets) / kSecond;
    EXPECT_GT(good / kSeconds, 0.4);  // independent losses of 12 % have 0.05
    EXPECT_GT(bad / kSeconds, 0.15);  // and 0.01
}

}  // namespace
}  // namespace aiplc::training
