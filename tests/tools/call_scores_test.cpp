// SPDX-License-Identifier: BSD-2-Clause
//
// Scores of plays made by hand: what is measured against which reference, and in which frames.

#include "tools/compare/call_scores.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "tests/measure/signals.h"

namespace aiplc::tools {
namespace {

constexpr int64_t kFrames = 60;
constexpr int64_t kGap = 20;        // two frames are lost here
constexpr int64_t kQuiet = 40;      // and one here, where only the enhancer leaves sound
constexpr int kFrameSamples = 320;  // at 16 kHz

// White noise, so that every bin of a spectrum is well filled.
CallRecording Noise(double scale) {
    CallRecording recording;
    recording.samples = measure::Noise(1, scale, kFrames * kFrameSamples);
    recording.sources.assign(kFrames, AIPLC_SOURCE_DECODED);
    return recording;
}

void Scale(CallRecording &recording, int64_t frame, double factor) {
    for (int64_t i = frame * kFrameSamples; i < (frame + 1) * kFrameSamples; ++i) {
        int16_t &sample = recording.samples[static_cast<size_t>(i)];
        sample = static_cast<int16_t>(std::lround(sample * factor));
    }
}

// The same with three lost frames, made up at the given share of their amplitude.
CallRecording WithGaps(CallRecording recording, double share) {
    for (const int64_t frame : {kGap, kGap + 1, kQuiet}) {
        recording.sources[static_cast<size_t>(frame)] = AIPLC_SOURCE_CODEC;
        Scale(recording, frame, share);
    }
    return recording;
}

double Mean(const measure::Term &term) {
    return term.sum / term.count;
}

// The enhancer makes the whole call half as loud, and has sound where the plain decoder is silent.
class CallScoresTest : public testing::Test {
  protected:
    CallScoresTest() {
        Scale(m_plain, kQuiet, 0.0);
        m_codec = WithGaps(m_plain, 0.25);
        m_enhancedCodec = WithGaps(m_enhanced, 0.25);
    }

    CallRecording m_plain = Noise(0.25);
    CallRecording m_enhanced = Noise(0.125);
    CallRecording m_codec;
    CallRecording m_enhancedCodec;
};

TEST_F(CallScoresTest, EachPlayIsMeasuredAgainstItsOwnReference) {
    const ScoredPlay codec{&m_codec, &m_plain};
    const ScoredPlay enhanced{&m_enhancedCodec, &m_enhanced};
    const ScoredPlay wrong{&m_enhancedCodec, &m_plain};
    const ScoredPlay ideal{&m_plain, &m_plain};
    const std::vector<ScoredPlay> plays = {codec, enhanced, wrong, ideal};
    const CallScores scores = ScoreCall(plays, 0, 16000);
    ASSERT_EQ(scores.gaps.size(), 2U);
    const GapScores &gap = scores.gaps[0];
    EXPECT_EQ(gap.first, kGap);
    EXPECT_EQ(gap.frames, 2);

    // A quarter of the amplitude is 12.04 dB less in every bin. The lost frames cost the same with
    // the enhancer as without it; against the plain call they would lie another 6.02 dB away, and
    // so would the frames behind the gap, which were received.
    const double quarter = 20.0 * std::log10(4.0);
    const double half = 20.0 * std::log10(2.0);
    const auto inside = [&](size_t play) { return Mean(gap.methods[play].inside[0]); };
    const auto after = [&](size_t play) { return Mean(gap.methods[play].after[0]); };
    EXPECT_NEAR(inside(0), quarter, 0.1);
    EXPECT_NEAR(inside(1), quarter, 0.1);
    EXPECT_NEAR(inside(2), quarter + half, 0.1);
    EXPECT_EQ(after(0), 0.0);
    EXPECT_EQ(after(1), 0.0);
    EXPECT_NEAR(after(2), half, 0.1);
    for (const size_t measure : {size_t{0}, size_t{1}, size_t{2}})
        EXPECT_EQ(gap.methods[3].inside.at(measure).sum, 0.0);
    // The step of the energy at both joins.
    EXPECT_NEAR(Mean(gap.methods[0].inside[2]), quarter, 0.1);
    EXPECT_NEAR(Mean(gap.methods[1].inside[2]), quarter, 0.1);
}

TEST_F(CallScoresTest, ReferenceOfTheGapsTellsForAllWhereSpeechIs) {
    const std::vector<ScoredPlay> plays = {{&m_codec, &m_plain}, {&m_enhancedCodec, &m_enhanced}};
    const CallScores plain = ScoreCall(plays, 0, 16000);
    ASSERT_EQ(plain.gaps.size(), 2U);
    for (size_t play : {size_t{0}, size_t{1}}) {
        EXPECT_EQ(plain.gaps[0].methods[play].inside[0].count, 2.0);
        EXPECT_EQ(plain.gaps[1].methods[play].inside[0].count, 0.0);
    }
    const CallScores enhanced = ScoreCall(plays, 1, 16000);
    EXPECT_EQ(enhanced.gaps[1].methods[0].inside[0].count, 1.0);
    EXPECT_EQ(enhanced.gaps[1].methods[1].inside[0].count, 1.0);
}

TEST_F(CallScoresTest, NothingIsMeasuredWhereTheReferenceWasLostToo) {
    // Ten frames were never captured; the other play is silent there and in the two behind.
    CallRecording captured = m_enhanced;
    CallRecording other = captured;
    for (int64_t frame = kGap; frame < kGap + 12; ++frame) {
        if (frame < kGap + 10) captured.sources[static_cast<size_t>(frame)] = AIPLC_SOURCE_CODEC;
        Scale(other, frame, 0.0);
    }
    other.sources = captured.sources;
    const std::vector<ScoredPlay> plays = {{&captured, &captured}, {&other, &captured}};
    const CallScores scores = ScoreCall(plays, 0, 16000);
    ASSERT_EQ(scores.gaps.size(), 1U);
    for (const measure::Term &term : scores.gaps[0].methods[1].inside)
        EXPECT_EQ(term.count, 0.0);
    for (const measure::Term &term : scores.gaps[0].methods[1].after)
        EXPECT_EQ(term.count, 0.0);
    const StretchTerms &whole = scores.stretches[0].methods[1];
    EXPECT_EQ(whole.interruptions.sum, 0.0);
    EXPECT_NEAR(whole.interruptions.count, 48 * 0.02 / 60.0, 1e-12);
    EXPECT_GT(whole.intelligibility.count, 0.0);
    EXPECT_NEAR(Mean(whole.intelligibility), 1.0, 1e-5);
}

TEST_F(CallScoresTest, MeasuresOfTheWholeCallHaveTheOwnReferenceToo) {
    // 300 ms of the call fall below the range of speech; its reference is as quiet there.
    CallRecording quiet = m_enhanced;
    for (int64_t frame = 24; frame < 39; ++frame)
        Scale(quiet, frame, 0.001);
    const std::vector<ScoredPlay> plays = {
        {&m_codec, &m_plain}, {&quiet, &quiet}, {&quiet, &m_enhanced}};
    const CallScores scores = ScoreCall(plays, 0, 16000);
    ASSERT_EQ(scores.stretches.size(), 1U);
    const auto &methods = scores.stretches[0].methods;
    EXPECT_EQ(methods[1].interruptions.sum, 0.0);
    EXPECT_EQ(methods[2].interruptions.sum, 1.0);
    EXPECT_NEAR(Mean(methods[1].intelligibility), 1.0, 1e-5);
    EXPECT_LT(Mean(methods[2].intelligibility), 0.99);
    const auto codec = static_cast<size_t>(AIPLC_SOURCE_CODEC);
    EXPECT_EQ(methods[0].shares.at(codec).sum, 300.0);
    EXPECT_EQ(methods[0].shares.at(codec).count, 60.0);
}

}  // namespace
}  // namespace aiplc::tools
