// SPDX-License-Identifier: BSD-2-Clause
//
// The decoder's complexity: what the libopus at hand makes of it, and how the commands use it.

#include <gmock/gmock.h>
#include <opus/opus.h>

#include <nlohmann/json.hpp>

#include "tests/host/call.h"
#include "tests/tools/test_files.h"
#include "tools/compare/compare_method.h"
#include "tools/conceal/conceal.h"
#include "tools/play/decoder_facts.h"
#include "tools/play/receiver_handle.h"

namespace aiplc::tools {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using Id = CompareMethod::Id;

Samples WithoutLostFrame(Samples played) {
    played.resize(played.size() - 320);
    return played;
}

TEST(DecoderFactsTest, FactsAreWhatTheDecoderDoesToAnotherVoice) {
    host::Packets packets = host::Speech({.sampleRate = 16000, .bitrate = 24000}, 1.0);
    packets.push_back({});  // a lost frame
    const Samples classic = host::DecodeAll(packets, 16000, kClassicComplexity);
    for (int complexity = 0; complexity <= kMaxComplexity; ++complexity) {
        const DecoderFacts &facts = DecoderFactsAt(complexity);
        const Samples played = host::DecodeAll(packets, 16000, complexity);
        EXPECT_EQ(facts.enhancement, WithoutLostFrame(played) != WithoutLostFrame(classic))
            << complexity;
        EXPECT_EQ(facts.neuralConcealment || facts.enhancement, played != classic) << complexity;
        EXPECT_TRUE(facts.hasComplexity || played == classic) << complexity;
    }
}

TEST(DecoderFactsTest, NoteSaysWhatTheLibraryAtHandCannotDo) {
    const DecoderFacts old;
    const DecoderFacts classic{.hasComplexity = true};
    const DecoderFacts neural{.hasComplexity = true, .neuralConcealment = true};
    const DecoderFacts all{.hasComplexity = true, .neuralConcealment = true, .enhancement = true};
    EXPECT_THAT(DecoderNote(3, old), AllOf(HasSubstr("changes nothing"), HasSubstr("1.5 and later"),
                                           HasSubstr(opus_get_version_string())));
    EXPECT_THAT(DecoderNote(5, classic), HasSubstr("no more than 4"));
    EXPECT_THAT(DecoderNote(10, classic), HasSubstr("no more than 4"));
    EXPECT_THAT(DecoderNote(6, neural), HasSubstr("no more than 5"));
    EXPECT_EQ(DecoderNote(4, classic), "");
    EXPECT_EQ(DecoderNote(5, neural), "");
    EXPECT_EQ(DecoderNote(10, all), "");
    EXPECT_THAT(DecoderLine(7, old), HasSubstr("has no decoder complexity"));
    EXPECT_THAT(DecoderLine(7, neural),
                AllOf(HasSubstr("complexity 7: neural"), Not(HasSubstr("enhancement"))));
    EXPECT_THAT(DecoderLine(7, all), HasSubstr("speech enhancement"));
}

TEST(CompareMethodTest, ComplexityIsThatOfAiplcAndOfEnhancedAlone) {
    const bool enhances = DecoderFactsAt(kMaxComplexity).enhancement;
    for (const std::optional<int> asked :
         {std::optional<int>{}, std::optional{2}, std::optional{6}}) {
        const auto setups = MethodSetups({.decoderComplexity = asked});
        ASSERT_EQ(setups.size(), CompareMethods().size());
        const auto complexity = [&](Id id) {
            return setups[MethodIndex(id)].receiver.decoderComplexity;
        };
        EXPECT_EQ(complexity(Id::aiplc), asked.value_or(DefaultReceiver().decoderComplexity));
        for (const Id id : {Id::silence, Id::codec, Id::ideal}) {
            EXPECT_EQ(complexity(id), 4);
            EXPECT_FALSE(setups[MethodIndex(id)].decoder.enhancement);
        }
        for (size_t i = 0; i < setups.size(); ++i) {
            const Id id = CompareMethods()[i].id;
            EXPECT_EQ(setups[i].receiver.predictor != AIPLC_PREDICTOR_NONE, id == Id::aiplc);
            EXPECT_EQ(setups[i].receiver.codecConceals, id != Id::silence ? 1 : 0);
            if (id == Id::neural) {
                EXPECT_EQ(complexity(id), 5);
            }
            if (id == Id::enhanced) {
                EXPECT_EQ(complexity(id), asked == 6 ? 6 : 10);
            }
        }
        const std::string ideal = setups[MethodIndex(Id::ideal)].about;
        EXPECT_EQ(ideal.find("enhancer on") != std::string::npos, enhances);
    }
}

class ConcealAtComplexityTest : public FolderTest {
  protected:
    // Plays a call without losses.
    void Run(std::optional<int> complexity) {
        ConcealOptions options;
        options.input = Write("in", WavFile(host::SpeechLike(16000, 2.0), 16000));
        options.output = Path("out.wav");
        options.jsonPath = Path("report.json");
        options.receiving.predictor = AIPLC_PREDICTOR_NONE;
        options.quiet = true;
        options.receiving.decoderComplexity = complexity;
        testing::internal::CaptureStderr();
        Conceal(options);
        m_messages = testing::internal::GetCapturedStderr();
        m_report = nlohmann::json::parse(Read("report.json"));
    }

    std::string m_messages;
    nlohmann::json m_report;
};

TEST_F(ConcealAtComplexityTest, ReachesTheDecoderAndTheReport) {
    Run({});
    const std::string usual = Read("out.wav");
    EXPECT_EQ(m_messages, "");
    EXPECT_EQ(m_report["options"]["decoderComplexity"], 10);
    Run(5);
    const DecoderFacts &facts = DecoderFactsAt(5);
    EXPECT_EQ(Read("out.wav") != usual, DecoderFactsAt(10).enhancement);
    EXPECT_EQ(m_messages.find("note: ") == std::string::npos, facts.neuralConcealment);
    EXPECT_EQ(m_report["options"]["decoderComplexity"], 5);
    EXPECT_EQ(m_report["decoder"]["complexity"].is_number(), facts.hasComplexity);
    EXPECT_EQ(m_report["decoder"]["neuralConcealment"], facts.neuralConcealment);
    EXPECT_EQ(m_report["decoder"]["enhancement"], facts.enhancement);
}

}  // namespace
}  // namespace aiplc::tools
