// SPDX-License-Identifier: BSD-2-Clause

#include "tools/conceal/conceal.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <numeric>
#include <sstream>

#include "tests/host/call.h"
#include "tests/tools/test_files.h"
#include "tools/play/decoder_facts.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// By how many samples, up to 100 either way, output of the same length trails input.
long Lag(const Samples &input, const Samples &output) {
    std::vector<double> products;
    for (long lag = -100; lag <= 100; ++lag) {
        products.push_back(std::inner_product(input.begin() + 100, input.end() - 100,
                                              output.begin() + 100 + lag, 0.0));
    }
    return std::max_element(products.begin(), products.end()) - products.begin() - 100;
}

class ConcealTest : public FolderTest {
  protected:
    ConcealTest() {
        m_options.output = Path("out.wav");
        m_options.receiving.predictor = AIPLC_PREDICTOR_NONE;
        m_options.quiet = true;
    }

    void SetInput(const Bytes &file) { m_options.input = Write("in", file); }
    void Lose(const std::string &trace) { m_options.loss.tracePath = Write("trace", Text(trace)); }

    Samples Run() {
        m_report = Conceal(m_options);
        return ReadWav("out.wav");
    }

    ConcealOptions m_options;
    ConcealReport m_report;
};

TEST_F(ConcealTest, OutputIsAlignedWithTheInputAndAsLong) {
    using Case = std::tuple<uint32_t, int, const char *, bool>;
    for (const auto &[rate, frameMs, bandwidth, firstLost] :
         {Case{16000, 20, "wb", false}, Case{48000, 20, "fb", false}, Case{16000, 60, "nb", false},
          Case{48000, 10, "nb", false}, Case{48000, 40, "wb", false}, Case{16000, 10, "wb", true},
          Case{48000, 20, "fb", true}}) {
        SCOPED_TRACE(testing::Message() << rate << " Hz, " << frameMs << " ms");
        const Samples input = Chirps(rate, 1.5037);
        SetInput(WavFile(input, rate));
        Lose((firstLost ? "1" : "0") + std::string(400, '0'));
        m_options.encoding.frameMs = frameMs;
        m_options.encoding.bandwidth = bandwidth;
        m_options.encoding.bitrate = 128000;  // CELT; SILK's resamplers are off by up to 3 samples
        const Samples output = Run();
        ASSERT_EQ(output.size(), input.size());
        EXPECT_EQ(Lag(input, output), 0);
        // Frames that begin in mid-frame of the call end half a frame behind it.
        const bool half = firstLost && frameMs == 10;
        EXPECT_EQ(m_report.statistics.concealedSamples, half ? rate / 100 : 0U);
    }
}

TEST_F(ConcealTest, KeptDelayIsTheOneReportedAndRealTimeIsKept) {
    SetInput(WavFile(Chirps(16000, 0.5), 16000));
    const Samples aligned = Run();
    m_options.keepDelay = true;
    m_options.realtime = true;
    const auto start = std::chrono::steady_clock::now();
    const Samples delayed = Run();
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_EQ(m_report.delay, 3 * 320 + 104);  // three frames and the 6.5 ms of the encoder
    ASSERT_EQ(delayed.size(), aligned.size() + 1064);
    EXPECT_EQ(Samples(delayed.begin() + 1064, delayed.end()), aligned);
}

TEST_F(ConcealTest, MixesAndResamplesWhatItIsGiven) {
    // 44.1 kHz, eight channels of which one speaks.
    const Samples voice = Chirps(44100, 1.0);
    Samples channels(8 * voice.size(), 0);
    for (size_t i = 0; i < voice.size(); ++i)
        channels[8 * i] = voice[i];
    SetInput(WavFile(channels, 44100, 8));
    m_options.encoding.bitrate = 128000;
    const Samples output = Run();
    ASSERT_EQ(output.size(), 48000U);
    EXPECT_EQ(Lag(Chirps(48000, 1.0), output), 0);
    EXPECT_NEAR(*std::max_element(output.begin(), output.end()), 1000, 100);

    m_options.quiet = false;
    const auto note = [&] {
        testing::internal::CaptureStderr();
        Run();
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_THAT(note(), testing::HasSubstr("note: " + Path("in") + ": 8 channels are mixed"));
    for (size_t i = 0; i < voice.size(); ++i)
        channels[8 * i + 1] = static_cast<int16_t>(-voice[i]);
    SetInput(WavFile(channels, 44100, 8));
    EXPECT_THAT(note(), testing::HasSubstr("its 8 channels cancel each other"));
    SetInput(WavFile(voice, 44100));
    Lose("00000000001" + std::string(100, '0'));
    EXPECT_THAT(note(), testing::HasSubstr(" in 1 gap\n"));
}

TEST_F(ConcealTest, CountsLossesAndMeasuresTheDistance) {
    SetInput(WavFile(Chirps(16000, 4.0), 16000));
    Lose("0000000001");
    m_options.receiving.decoderComplexity = 5;  // chirps are no speech to be enhanced
    m_options.framesPath = Path("frames.csv");
    m_options.jsonPath = Path("report.json");
    Run();
    // 4 s and the encoder's delay are 201 packets, of which the 10th, 20th, ... are lost.
    EXPECT_EQ(m_report.packets, 201U);
    EXPECT_EQ(m_report.packetsDropped, 20U);
    EXPECT_EQ(m_report.statistics.framesBySource[AIPLC_SOURCE_CODEC], 20U);
    EXPECT_EQ(m_report.statistics.concealmentEvents, 20U);
    const double distance = m_report.logSpectralDistanceDb.value_or(0.0);
    EXPECT_TRUE(distance > 1.0 && distance < 20.0) << distance;
    EXPECT_THAT(Read("report.json"), testing::AllOf(HasSubstr("\"concealmentEvents\": 20"),
                                                    HasSubstr("\"bitrate\": 24000"),
                                                    HasSubstr("\"requestTimeMs\": null")));

    std::istringstream rows(Read("frames.csv"));
    std::string row;
    std::getline(rows, row);
    EXPECT_THAT(row, StartsWith("frame,time_s,source,"));
    int frame = 0;
    for (; std::getline(rows, row); ++frame) {
        std::array<char, 64> expected{};
        std::snprintf(expected.data(), expected.size(), "%d,%.4f,%s,", frame, 0.02 * frame - 0.0065,
                      frame % 10 == 9 ? "codec" : "decoded");
        EXPECT_THAT(row, StartsWith(expected.data()));
    }
    EXPECT_EQ(frame, 201);
}

// Only single frames are lost, so that the worker makes up nothing else.
TEST_F(ConcealTest, SecondLooksAreConcealedAudioAndHaveAnAccountOfTheirOwn) {
    SetInput(WavFile(Chirps(16000, 4.0), 16000));
    Lose("0000000001");
    m_options.framesPath = Path("frames.csv");
    m_options.jsonPath = Path("report.json");
    m_options.receiving.predictor = AIPLC_PREDICTOR_WORKER;
    Run();
    const AiPlcReceiverStatistics &statistics = m_report.statistics;
    const auto report = nlohmann::json::parse(Read("report.json"));
    const uint64_t filled = statistics.framesBySource[AIPLC_SOURCE_SECOND_LOOK];
    EXPECT_GT(filled, 0U);
    EXPECT_EQ(statistics.concealmentEvents, 20U);
    EXPECT_GT(m_report.logSpectralDistanceDb.value_or(0.0), 1.0);
    EXPECT_EQ(report["statistics"]["framesBySource"]["secondLook"], filled);
    EXPECT_EQ(report["worker"]["requestsByKind"]["library"]["made"], 0);
    const auto &looks = report["worker"]["requestsByKind"]["secondLook"];
    EXPECT_EQ(looks["made"], report["worker"]["requests"]);
    EXPECT_EQ(looks["made"].get<uint64_t>() - looks["failed"].get<uint64_t>(), filled);
    EXPECT_THAT(ReportSummary(m_options, m_report),
                testing::AllOf(HasSubstr(" secondLook "), HasSubstr("of them second looks")));

    std::istringstream rows(Read("frames.csv"));
    uint64_t named = 0;
    for (std::string row; std::getline(rows, row);)
        named += row.find(",secondLook,") != std::string::npos ? 1U : 0U;
    EXPECT_EQ(named, filled);
}

TEST_F(ConcealTest, DecoderComplexityReachesTheDecoderAndTheReport) {
    SetInput(WavFile(host::SpeechLike(16000, 2.0), 16000));
    m_options.jsonPath = Path("report.json");
    Samples played[2];
    for (const int complexity : {10, 5}) {
        if (complexity != 10) m_options.receiving.decoderComplexity = complexity;
        testing::internal::CaptureStderr();
        played[complexity / 10] = Run();
        // A note says what the libopus at hand cannot do of what was asked for.
        const bool isNoted =
            testing::internal::GetCapturedStderr().find("note: ") != std::string::npos;
        const DecoderFacts &facts = DecoderFactsAt(complexity);
        EXPECT_EQ(isNoted, complexity == 5 && !facts.neuralConcealment);
        const auto report = nlohmann::json::parse(Read("report.json"));
        EXPECT_EQ(report["options"]["decoderComplexity"], complexity);
        EXPECT_EQ(report["decoder"]["neuralConcealment"], facts.neuralConcealment);
        EXPECT_EQ(report["decoder"]["enhancement"], facts.enhancement);
    }
    EXPECT_EQ(played[0] != played[1], DecoderFactsAt(10).enhancement);
}

TEST_F(ConcealTest, RedundancyAndPausesReachTheEncoder) {
    SetInput(WavFile(Chirps(16000, 2.0), 16000));
    Lose("0001");
    m_options.encoding.fec = true;
    Run();
    EXPECT_GT(m_report.statistics.framesBySource[AIPLC_SOURCE_FEC], 10U);
    // Three packets in a row are repeated in the fourth; beside the bitrate, which stays.
    m_options.encoding.fec = false;
    m_options.encoding.redundancy = 3;
    Lose("0001000111");
    const Samples repaired = Run();
    EXPECT_EQ(m_report.statistics.concealedSamples, 0U);
    EXPECT_GT(m_report.payloadBitrate, 3.5 * 20000);
    Lose("0");
    EXPECT_EQ(Run(), repaired);
    EXPECT_EQ(m_report.statistics.redundantBlocksUsed, 0U);
    SetInput(WavFile(Samples(32000, 0), 16000));
    m_options.encoding.dtx = true;
    Run();
    EXPECT_LT(m_report.packets, 50U);
}

TEST_F(ConcealTest, NothingIsWrittenWhenItFails) {
    const Bytes wav = WavFile(Chirps(16000, 0.5), 16000, 2);
    const Bytes truncated(wav.begin(), wav.begin() + 4000);
    const Bytes noise(3000, 0x7B);
    for (const Bytes &bad : {truncated, WavFile({1, 2}, 0), WavFile({}, 16000), noise}) {
        SetInput(bad);
        EXPECT_THROW(Conceal(m_options), Failure);
    }
    SetInput(wav);
    Lose("1");
    EXPECT_THROW(Conceal(m_options), Failure);  // no packet is left
    EXPECT_THAT(Names(), testing::ElementsAre("in", "trace"));
}

}  // namespace
}  // namespace aiplc::tools
