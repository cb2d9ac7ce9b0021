// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace {

using Samples = std::vector<int16_t>;

// A channel with its rings, without the pipeline. The codec's frame holds 10000, the look-ahead
// -10000.
class PostProcessing : public testing::TestWithParam<uint32_t> {
  protected:
    PostProcessing() {
        AiPlcInitRingLists(m_channel.get());
        m_channel->is48K = GetParam();
        m_output = m_channel->outputRing->head;
        m_node = m_channel->historyRing->head;
        m_codec = m_channel->opusRing->head->prev->prev->prev;
        m_node->sampleCount = m_codec->sampleCount = static_cast<uint16_t>(m_frame);
        std::fill_n(m_codec->samples, m_frame, int16_t{10000});
        std::fill_n(m_look, m_frame, int16_t{-10000});
    }
    ~PostProcessing() override { AiPlcAsyncDestroy(m_channel.get()); }

    // The PCM of a frame of noise in the lowest band, with the frame after it as its look-ahead.
    Samples Process(int frame, bool narrowband, uint16_t hasNext = 1) {
        for (int i = 0; i < 640; ++i) {
            int16_t *half = i < 320 ? m_node->bands[0] : m_channel->nextPredict;
            half[i % 320] = static_cast<int16_t>(7919 * (320 * frame + i) % 20011 - 10000);
        }
        m_node->bandwidth = narrowband ? 1101 : 1103;
        m_node->hasNextPredict = hasNext;
        AiPlcPostProc(m_channel.get(), m_node);
        return {m_node->samples, m_node->samples + m_frame};
    }
    // The first, second and last sample after a switch to a frame of silence.
    Samples Switch(AiPlcPktType before, AiPlcPktType type) {
        m_node->prev->pktType = before;
        m_node->pktType = type;
        m_node->opusPlcApplied = 0;
        std::fill_n(m_node->samples, m_frame, int16_t{0});
        AiPlcOpusFallBack(m_channel.get(), m_node, m_output);
        return {m_output->samples[0], m_output->samples[1], m_output->samples[m_frame - 1]};
    }

    const bool m_is48K = GetParam() == 1;
    const size_t m_frame = m_is48K ? 960 : 320;
    std::unique_ptr<StAiPlcChannel> m_channel = std::make_unique<StAiPlcChannel>();
    int16_t *m_look = m_is48K ? m_channel->nextPredict48K : m_channel->nextPredict;
    AiPlcPkt *m_output = nullptr;
    AiPlcPkt *m_node = nullptr;
    AiPlcPkt *m_codec = nullptr;
};
// Any is48K but 1 means 16 kHz.
INSTANTIATE_TEST_SUITE_P(Rates, PostProcessing, testing::Values(0, 1, 2));

// 10000 weighted by the rising half of a triangle and truncated; exact in integers.
int Rising(size_t k, size_t length) {
    return static_cast<int>(10000 * (2 * k + 1) / (2 * length));
}

}  // namespace

TEST(Windows, AreTrianglesOfNineDigits) {
    for (const auto &[table, length] :
         {std::pair(g_aiplcTriangWin16K, 320), std::pair(g_aiplcTriangWin48K, 960)}) {
        for (int k = 0; k < length; ++k) {
            char text[32];
            std::snprintf(text, sizeof text, "%.9g", (k + 0.5) / length);
            EXPECT_EQ(table[k], std::strtof(text, nullptr)) << k;
            EXPECT_EQ(table[2 * length - 1 - k], table[k]) << k;
        }
    }
    EXPECT_EQ(g_aiplcTriangWin48K[14], 0.0151041672F);
}

TEST(Fades, WeighWithTheWindowsAndTruncate) {
    const Samples from(960, -10000);
    const Samples to(960, 10000);
    Samples out = from, in = to, fused = to, smoothed = from;
    AiPlc16kFadeOut(out.data());
    AiPlc16kFadeIn(in.data());
    AiPlcFuseSmooth(from.data(), fused.data(), g_aiplcTriangWin16K, 320);
    EXPECT_EQ(AiPlcWinSmoothing(to.data(), smoothed.data(), 960), 0);
    EXPECT_EQ(AiPlcWinSmoothing(to.data(), smoothed.data(), 959), -1);
    for (size_t k = 0; k < 320; ++k) {
        EXPECT_EQ(in[k], Rising(k, 320)) << k;
        EXPECT_EQ(out[k], -Rising(319 - k, 320)) << k;
        EXPECT_EQ(fused[k], in[k] + out[k]) << k;
    }
    for (size_t k = 0; k < 960; ++k)
        EXPECT_EQ(smoothed[k], Rising(k, 960) - Rising(959 - k, 960)) << k;
    EXPECT_EQ((Samples{in[0], in[319], fused[0], fused[319], smoothed[0]}),
              (Samples{15, 9984, -9969, 9969, -9989}));
}

TEST_P(PostProcessing, NarrowbandIsLowPassedFromSilenceOnAndTheLookAheadIsTheNextFrame) {
    Samples expected, out, look;
    for (int f = 0; f < 5; ++f) {
        const Samples frame = Process(f, false);
        expected.insert(expected.end(), frame.begin(), frame.end());
    }
    // Frames 0, 1 and 4 are narrowband.
    for (const size_t first : {0U, 4U}) {
        float state[91] = {};
        AiPlcFir(&expected[first * m_frame], state,
                 m_is48K ? g_aiplcLowPassCoeff48K : g_aiplcLowPassCoeff16K,
                 (first == 0 ? 2 : 1) * m_codec->sampleCount, m_is48K ? 91 : 31);
    }
    std::ranges::fill(m_channel->postSynthesisMem, 0.0F);
    for (int f = 0; f < 5; ++f) {
        const Samples frame = Process(f, f < 2 || f == 4);
        EXPECT_TRUE(f % 2 == 0 || frame == look) << f;
        look.assign(m_look, m_look + m_frame);
        out.insert(out.end(), frame.begin(), frame.end());
    }
    EXPECT_EQ(out, expected);
    // Without a look-ahead nothing becomes of nextPredict.
    m_look[0] = 1234;
    (void)Process(5, true, 0);
    const int predicted = 7919 * 320 * 6 % 20011 - 10000;
    EXPECT_EQ(m_channel->nextPredict[0], predicted);
    EXPECT_EQ(m_look[0], m_is48K ? 1234 : predicted);
}

TEST_P(PostProcessing, SwitchesBetweenCodecAndPredictionAreCrossFaded) {
    const std::map<char, Samples> heard = {
        {'n', Samples(3, 0)},      // the node
        {'c', Samples(3, 10000)},  // the codec
        // f, t: the first, second and last sample of a fade from the codec to the node, and back
        {'f', m_is48K ? Samples{9994, 9984, 5} : Samples{9984, 9953, 15}},
        {'t', m_is48K ? Samples{-9989, -9969, 9989} : Samples{-9969, -9907, 9969}}};
    const AiPlcPktType types[] = {OPUS_DECODED, AIPLC_EXTRAPOLATE, AIPLC_INTERPOLATE,
                                  PKT_LOST,     PKT_MUTE,          OPUSPLC_PREDICT};
    // By the type of the frame before, then of the frame.
    const char *const expected[] = {"nffnnc", "nnnnnt", "nnnnnc", "nnnnnc", "nnnnnc", "cffnnc"};
    for (size_t i = 0; i < 36; ++i) {
        const char letter = expected[i / 6][i % 6];
        EXPECT_EQ(Switch(types[i / 6], types[i % 6]), heard.at(letter)) << i;
        EXPECT_EQ(m_output->fusedIntoPredict == 1, letter == 'f') << i;
        EXPECT_EQ(m_output->fusedFromPredict == 1, letter == 't') << i;
        EXPECT_EQ(m_output->opusPlcApplied == 1, letter == 't' || letter == 'c') << i;
    }
    m_codec->sampleCount = 961;  // does not fit
    EXPECT_EQ(Switch(OPUSPLC_PREDICT, OPUSPLC_PREDICT), heard.at('n'));
    EXPECT_EQ(m_output->opusPlcApplied, 1);
}
