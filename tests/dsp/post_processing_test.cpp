// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr uint32_t kWideband = 1103;

// A channel with its codec ring and two neighbouring history frames, without the pipeline.
class PostProcessing : public testing::Test {
  protected:
    void SetUp() override {
        m_channel->opusRing = AiPlcInitRingList(8);
        m_history = AiPlcInitRingList(4);
        m_output = AiPlcInitRingList(1);
        m_node = m_history->head;
        m_codec = m_channel->opusRing->head->prev->prev->prev;
    }
    void TearDown() override {
        AiPlcDestroyRingList(m_channel->opusRing);
        AiPlcDestroyRingList(m_history);
        AiPlcDestroyRingList(m_output);
    }

    // Prepares a 16 kHz switch: the frame before, the frame, the codec's frame and its level.
    void Prepare(AiPlcPktType before, AiPlcPktType type, int16_t codecLevel, int16_t level) {
        m_node->prev->pktType = before;
        m_node->pktType = type;
        m_node->sampleCount = m_codec->sampleCount = 320;
        std::fill_n(m_codec->samples, 320, codecLevel);
        std::fill_n(m_node->samples, 320, level);
        m_output->head->sampleCount = 960;
        AiPlcOpusFallBack(m_channel.get(), m_node, m_output->head);
    }
    int16_t Out(int i) const { return m_output->head->samples[i]; }

    std::unique_ptr<StAiPlcChannel> m_channel = std::make_unique<StAiPlcChannel>();
    AiPlcRingList *m_history = nullptr;
    AiPlcRingList *m_output = nullptr;
    AiPlcPkt *m_node = nullptr;
    AiPlcPkt *m_codec = nullptr;
};

std::vector<int16_t> Noise(size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<int16_t> noise(count);
    for (int16_t &sample : noise)
        sample = static_cast<int16_t>(random() % 20000 - 10000);
    return noise;
}

}  // namespace

TEST_F(PostProcessing, NarrowbandLowPassRunsThroughFramesAndLookAhead) {
    std::vector<int16_t> stream = Noise(960, 2);
    std::copy_n(stream.begin() + 640, 320, m_channel->nextPredict);
    m_node->bandwidth = AIPLC_BANDWIDTH_NARROWBAND;
    std::vector<int16_t> out;
    for (int f = 0; f < 2; ++f) {
        std::copy_n(stream.begin() + 320 * f, 320, m_node->bands[0]);
        m_node->hasNextPredict = f == 1;
        AiPlcPostProc(m_channel.get(), m_node);
        out.insert(out.end(), m_node->samples, m_node->samples + 320);
    }
    out.insert(out.end(), m_channel->nextPredict, m_channel->nextPredict + 320);

    float state[31] = {};
    AiPlcFir(stream.data(), state, g_aiplcLowPassCoeff16K, 960, 31);
    EXPECT_EQ(out, stream);

    m_node->bandwidth = kWideband;
    AiPlcPostProc(m_channel.get(), m_node);
    EXPECT_TRUE(std::equal(m_node->samples, m_node->samples + 320, m_node->bands[0]));
    EXPECT_EQ(*std::max_element(m_channel->postLowPassMem16K, m_channel->postLowPassMem16K + 31),
              0);
}

TEST_F(PostProcessing, LookAheadAt48KContinuesTheStreamWithoutMovingIt) {
    m_channel->is48K = 1;
    const std::vector<int16_t> low = Noise(640, 3);
    std::copy_n(low.begin(), 320, m_node->bands[0]);
    std::copy_n(low.begin() + 320, 320, m_channel->nextPredict);
    m_node->hasNextPredict = 1;
    AiPlcPostProc(m_channel.get(), m_node);
    const std::vector<int16_t> look(m_channel->nextPredict48K, m_channel->nextPredict48K + 960);

    m_node->hasNextPredict = 0;
    std::copy_n(low.begin() + 320, 320, m_node->bands[0]);
    AiPlcPostProc(m_channel.get(), m_node);
    EXPECT_TRUE(std::equal(look.begin(), look.end(), m_node->samples));
}

TEST_F(PostProcessing, SwitchesAreCrossFadedOverOneFrame) {
    Prepare(OPUS_DECODED, AIPLC_EXTRAPOLATE, 10000, 0);
    EXPECT_EQ(Out(0), 9984);
    EXPECT_EQ(Out(1), 9953);
    EXPECT_EQ(Out(319), 15);
    EXPECT_EQ(m_output->head->fusedIntoPredict, 1);

    std::fill_n(m_channel->nextPredict, 320, int16_t{10000});
    Prepare(AIPLC_EXTRAPOLATE, OPUSPLC_PREDICT, 0, 77);
    EXPECT_EQ(Out(0), 9984);
    EXPECT_EQ(Out(319), 15);
    EXPECT_EQ(m_output->head->fusedFromPredict, 1);
    EXPECT_EQ(m_node->opusPlcApplied, 1);
}

TEST_F(PostProcessing, CodecFramesReplaceAndPredictionsFollowPlainly) {
    struct Case {
        AiPlcPktType before, type;
        int16_t expected;
    };
    const Case cases[] = {
        {OPUSPLC_PREDICT, OPUSPLC_PREDICT, 500}, {OPUSPLC_PREDICT, OPUS_DECODED, 500},
        {OPUS_DECODED, OPUSPLC_PREDICT, 500},    {AIPLC_INTERPOLATE, OPUSPLC_PREDICT, 500},
        {OPUS_DECODED, OPUS_DECODED, 700},       {AIPLC_EXTRAPOLATE, AIPLC_INTERPOLATE, 700},
        {AIPLC_INTERPOLATE, OPUS_DECODED, 700},  {OPUSPLC_PREDICT, PKT_LOST, 700},
        {PKT_MUTE, AIPLC_EXTRAPOLATE, 700}};
    for (const Case &c : cases) {
        Prepare(c.before, c.type, 500, 700);
        EXPECT_EQ(Out(0), c.expected) << c.before << " " << c.type;
        EXPECT_EQ(Out(319), c.expected) << c.before << " " << c.type;
    }
    // A frame shorter than the codec's keeps its own audio.
    Prepare(OPUSPLC_PREDICT, OPUSPLC_PREDICT, 500, 700);
    m_codec->sampleCount = 960;
    std::fill_n(m_node->samples, 320, int16_t{700});
    AiPlcOpusFallBack(m_channel.get(), m_node, m_output->head);
    EXPECT_EQ(Out(0), 700);
}
