// SPDX-License-Identifier: BSD-2-Clause

#include "tools/conceal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "scratch_folder.h"
#include "tools/failure.h"

namespace aiplc::tools {
namespace {

// Sum of products with output moved by lag samples; long enough stretches on both sides.
double Correlation(const std::vector<int16_t> &input, const std::vector<int16_t> &output, int lag) {
    constexpr size_t kMargin = 100;
    double sum = 0.0;
    for (size_t i = kMargin; i + kMargin < std::min(input.size(), output.size()); ++i) {
        const auto at = static_cast<size_t>(static_cast<long>(i) + lag);
        sum += static_cast<double>(input[i]) * output[at];
    }
    return sum;
}

int BestLag(const std::vector<int16_t> &input, const std::vector<int16_t> &output) {
    int best = 0;
    for (int lag = -100; lag <= 100; ++lag) {
        if (Correlation(input, output, lag) > Correlation(input, output, best)) best = lag;
    }
    return best;
}

class ConcealTest : public testing::Test {
  protected:
    ConcealTest() {
        m_options.output = m_folder.Path("out.wav");
        m_options.noAi = true;
        m_options.quiet = true;
    }

    std::vector<int16_t> Run() {
        m_report = Conceal(m_options);
        return WavSamples(ReadBytes(m_options.output));
    }

    ScratchFolder m_folder;
    ConcealOptions m_options;
    ConcealReport m_report;
};

TEST_F(ConcealTest, OutputIsAlignedWithTheInputAndAsLong) {
    struct Case {
        uint32_t rate;
        int frameMs;
        const char *bandwidth;
        const char *trace;
    };
    // The last ones lose the very first packet, or half of the first frame.
    const std::vector<Case> cases = {{16000, 20, "wb", "0"},    {48000, 20, "fb", "0"},
                                     {16000, 60, "nb", "0"},    {48000, 10, "nb", "0"},
                                     {48000, 40, "wb", "0"},    {16000, 10, "wb", nullptr},
                                     {48000, 20, "fb", nullptr}};
    for (const Case &one : cases) {
        const auto input = Babble(one.rate, 1.5037);
        m_options.input = m_folder.Write("in", WavFile(input, one.rate, 1));
        m_options.encoding.frameMs = one.frameMs;
        m_options.encoding.bandwidth = one.bandwidth;
        m_options.encoding.bitrate = 128000;  // CELT; SILK's resamplers are off by up to 3 samples
        std::string trace = one.trace != nullptr ? one.trace : "1" + std::string(400, '0');
        m_options.loss.tracePath = m_folder.Write("trace", trace);
        const auto output = Run();
        EXPECT_EQ(output.size(), input.size()) << one.rate << " Hz, " << one.frameMs << " ms";
        EXPECT_EQ(BestLag(input, output), 0)
            << one.rate << " Hz, " << one.frameMs << " ms " << one.bandwidth;
        // Frames that begin in mid-frame of the call end half a frame behind it.
        const bool half = one.trace == nullptr && one.frameMs == 10;
        EXPECT_EQ(m_report.statistics.concealedSamples, half ? one.rate / 100 : 0U);
    }
}

TEST_F(ConcealTest, KeptDelayIsTheOneReported) {
    const auto input = Babble(16000, 1.0);
    m_options.input = m_folder.Write("in", WavFile(input, 16000, 1));
    const auto aligned = Run();
    m_options.keepDelay = true;
    auto delayed = Run();
    // Three frames and the 6.5 ms of the encoder.
    ASSERT_EQ(m_report.delay, 3 * 320 + 104);
    ASSERT_EQ(delayed.size(), input.size() + 1064);
    delayed.erase(delayed.begin(), delayed.begin() + 1064);
    EXPECT_EQ(delayed, aligned);
}

TEST_F(ConcealTest, MixesAndResamplesWhatItIsGiven) {
    // 44.1 kHz, eight channels of which one speaks.
    const auto voice = Babble(44100, 1.0);
    std::vector<int16_t> channels;
    for (const int16_t sample : voice) {
        channels.push_back(sample);
        channels.insert(channels.end(), 7, 0);
    }
    m_options.input = m_folder.Write("in", WavFile(channels, 44100, 8));
    const auto output = Run();
    EXPECT_EQ(m_report.sampleRate, 48000);
    ASSERT_EQ(output.size(), 48000U);
    EXPECT_EQ(BestLag(Babble(48000, 1.0), output) / 100, 0);
    const int16_t loudestIn = *std::max_element(voice.begin(), voice.end());
    const int16_t loudestOut = *std::max_element(output.begin(), output.end());
    EXPECT_NEAR(loudestOut, loudestIn / 8.0, loudestIn / 24.0);
}

TEST_F(ConcealTest, CountsLossesAndMeasuresTheDistance) {
    m_options.input = m_folder.Write("in", WavFile(Babble(16000, 4.0), 16000, 1));
    m_options.loss.tracePath = m_folder.Write("trace", std::string("0000000001"));
    m_options.framesPath = m_folder.Path("frames.csv");
    m_options.jsonPath = m_folder.Path("report.json");
    Run();
    // 4 s and the encoder's delay are 201 packets, of which the 10th, 20th, ... are lost.
    EXPECT_EQ(m_report.packets, 201U);
    EXPECT_EQ(m_report.packetsDropped, 20U);
    EXPECT_EQ(m_report.statistics.Frames(host::FrameSource::codec), 20U);
    EXPECT_EQ(m_report.statistics.concealmentEvents, 20U);
    ASSERT_TRUE(m_report.logSpectralDistanceDb.has_value());
    EXPECT_GT(*m_report.logSpectralDistanceDb, 1.0);
    EXPECT_LT(*m_report.logSpectralDistanceDb, 20.0);

    const Bytes table = ReadBytes(m_options.framesPath);
    std::istringstream rows(std::string(table.begin(), table.end()));
    std::string row;
    std::getline(rows, row);
    EXPECT_THAT(row, testing::StartsWith("frame,time_s,source,"));
    int frame = 0;
    for (; std::getline(rows, row); ++frame) {
        const std::string source = frame % 10 == 9 ? "codec" : "decoded";
        std::istringstream fields(row);
        std::string number;
        std::string seconds;
        std::string given;
        std::getline(fields, number, ',');
        std::getline(fields, seconds, ',');
        std::getline(fields, given, ',');
        EXPECT_EQ(number, std::to_string(frame));
        EXPECT_NEAR(std::stod(seconds), 0.02 * frame - 0.0065, 0.0001);
        EXPECT_EQ(given, source) << row;
    }
    EXPECT_EQ(frame, 201);
    const Bytes json = ReadBytes(m_options.jsonPath);
    EXPECT_THAT(std::string(json.begin(), json.end()),
                testing::AllOf(testing::HasSubstr("\"concealmentEvents\": 20"),
                               testing::HasSubstr("\"bitrate\": 24000"),
                               testing::HasSubstr("\"requestTimeMs\": null")));
}

TEST_F(ConcealTest, NothingIsWrittenWhenItFails) {
    Bytes wav = WavFile(Babble(16000, 0.5), 16000, 2);
    Bytes zeroRate = wav;
    std::fill_n(zeroRate.begin() + 24, 4, uint8_t{0});
    const Bytes truncated(wav.begin(), wav.begin() + 4000);
    for (const Bytes &bad : {truncated, zeroRate, WavFile({}, 16000, 1), Bytes(3000, 0x7B)}) {
        m_options.input = m_folder.Write("in", bad);
        EXPECT_THROW(Conceal(m_options), Failure);
    }
    m_options.input = m_folder.Write("in", wav);
    m_options.loss.tracePath = m_folder.Write("trace", std::string("1"));
    EXPECT_THROW(Conceal(m_options), Failure);  // no packet is left
    m_options.output = m_options.input;
    m_options.loss.tracePath.reset();
    EXPECT_THROW(Conceal(m_options), Failure);
    EXPECT_EQ(ReadBytes(m_options.input), wav);
    EXPECT_EQ(m_folder.Names(), std::vector<std::string>({"in", "trace"}));
}

}  // namespace
}  // namespace aiplc::tools
