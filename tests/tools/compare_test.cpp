// SPDX-License-Identifier: BSD-2-Clause
//
// Whole comparisons with the real codec and the real worker.

#include "tools/compare/compare.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "tests/host/call.h"
#include "tests/tools/capture_files.h"
#include "tests/tools/test_files.h"
#include "tools/compare/compare_method.h"
#include "tools/conceal/conceal.h"
#include "tools/input/call_loader.h"
#include "tools/play/call_recording.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

using Json = nlohmann::json;
using testing::HasSubstr;

class CompareTest : public FolderTest {
  protected:
    CompareTest() {
        m_options.inputs = {Write("talk.wav", WavFile(host::SpeechLike(16000, 4.0), 16000))};
        m_options.jsonPath = Path("report.json");
        m_options.csvPath = Path("report.csv");
        m_options.htmlPath = Path("report.html");
        m_options.quiet = true;
    }

    void Lose(const std::string &trace) {
        m_options.losses.tracePaths = {Write("trace.txt", Text(trace))};
    }

    // Runs the comparison; leaves its report in m_report.
    void Run() {
        testing::internal::CaptureStdout();
        m_gates = Compare(m_options);
        m_tables = testing::internal::GetCapturedStdout();
        m_report = Json::parse(Read("report.json"));
    }

    // The report within the page.
    Json PageReport() const {
        const std::string page = Read("report.html");
        const std::string mark = "id=\"aiplc-report\">";
        const size_t begin = page.find(mark) + mark.size();
        return Json::parse(page.substr(begin, page.find("</script>", begin) - begin));
    }

    // value of every figure of one measure, by method and kind.
    std::map<std::string, double> Values(const std::string &measure) const {
        std::map<std::string, double> values;
        for (const Json &figure : m_report["figures"]) {
            if (figure["measure"] == measure)
                values[figure["method"].get<std::string>() + "." +
                       figure["kind"].get<std::string>()] = figure["value"];
        }
        return values;
    }

    CompareOptions m_options;
    std::vector<std::string> m_gates;
    std::string m_tables;
    Json m_report;
};

TEST_F(CompareTest, WithoutLossesEveryMethodIsItsReference) {
    m_options.losses.percents = {0.0};
    for (const int complexity : {5, 10}) {
        m_options.receiving.decoderComplexity = complexity;
        Run();
        EXPECT_EQ(m_report["decoderComplexity"], complexity);
        const Json file = PageReport()["files"][0];
        EXPECT_TRUE(file["gaps"].empty());
        ASSERT_EQ(file["audio"].size(), CompareMethods().size());
        for (const Json &method : m_report["methods"]) {
            // An enhancer changes what was received, which is nonetheless no damage.
            const std::string id = method["id"];
            EXPECT_EQ(file["audio"][id] != file["audio"]["ideal"], method["enhances"]) << id;
            EXPECT_FALSE(method["enhances"] && (id == "silence" || id == "codec"));
            EXPECT_NEAR(Values("estoi")[id + ".call"], 1.0, 1e-5);
            EXPECT_EQ(Values("share.decoded")[id + ".call"], 100.0);
        }
        EXPECT_TRUE(Values("lsd").empty());
    }
}

TEST_F(CompareTest, GapsAreThoseOfTheTraceAndDistancesThoseOfConceal) {
    // Of 40 packets two are lost singly, three in a row and eight in a row.
    const std::string trace = "0000010001000000001110000000001111111100";
    Lose(trace);
    Run();
    std::set<std::pair<int, int>> gaps;
    for (const Json &gap : m_report["files"][0]["gaps"])
        gaps.emplace(gap["first"].get<int>(), gap["frames"].get<int>());
    std::set<std::pair<int, int>> expected;
    for (int at = 0; at < 201; at += 40) {
        for (const auto &[first, frames] : {std::pair{5, 1}, {9, 1}, {18, 3}, {30, 8}}) {
            if (at + first < 201) expected.insert({at + first, frames});
        }
    }
    EXPECT_EQ(gaps, expected);

    const auto lsd = Values("lsd");
    for (const char *kind : {"gap1", "gap2-3", "gap7+", "after", "call"}) {
        EXPECT_EQ(lsd.at(std::string("ideal.") + kind), 0.0);
        EXPECT_GT(lsd.at(std::string("codec.") + kind), 0.0);
        EXPECT_GT(lsd.at(std::string("aiplc.") + kind), 0.0);
    }
    EXPECT_FALSE(lsd.contains("codec.gap4-6"));
    EXPECT_GT(lsd.at("silence.call"), lsd.at("codec.call"));
    EXPECT_GT(Values("interruptions").at("silence.call"), 0.0);
    for (const char *measure : {"mcd", "joinLevel", "joinPitch", "interruptions"})
        EXPECT_EQ(Values(measure).at("ideal.call"), 0.0) << measure;
    EXPECT_NE(lsd.at("aiplc.gap2-3"), lsd.at("codec.gap2-3"));  // the worker was there
    EXPECT_TRUE(m_report["files"][0]["sources"]["aiplc"].contains("interpolated"));

    ConcealOptions conceal;
    conceal.input = m_options.inputs[0];
    conceal.output = Path("out.wav");
    conceal.loss.tracePath = m_options.losses.tracePaths[0];
    conceal.receiving.predictor = AIPLC_PREDICTOR_NONE;
    conceal.quiet = true;
    for (const Json &method : m_report["methods"]) {
        const std::string id = method["id"];
        if (id != "codec" && id != "neural" && id != "enhanced") continue;
        // Without a complexity where libopus has none to set.
        if (method.contains("decoderComplexity"))
            conceal.receiving.decoderComplexity = method["decoderComplexity"];
        EXPECT_NEAR(Conceal(conceal).logSpectralDistanceDb.value_or(0.0), lsd.at(id + ".call"),
                    1e-4)
            << id;
    }

    // Every gap has its row of each method; the tables name what they hold.
    size_t rows = 0;
    std::istringstream csv(Read("report.csv"));
    for (std::string row; std::getline(csv, row);)
        rows += row.starts_with("gap,talk.wav,trace1,silence,gap7+,lsd,") ? 1U : 0U;
    EXPECT_EQ(rows, 5U);
    EXPECT_THAT(m_tables, testing::AllOf(HasSubstr("[lsd], dB"), HasSubstr("7 frames or more"),
                                         HasSubstr("interpolated")));
}

// Every tenth frame is lost, alone among received ones.
TEST_F(CompareTest, SingleLossesAreTheWorkersUnlessItIsNotAskedForThem) {
    Lose("0000000001");
    m_options.failGates = {"aiplc.share.secondLook > 0"};
    Run();
    const Json withLook = m_report["files"][0];
    EXPECT_EQ(m_gates.size(), 1U);
    EXPECT_EQ(withLook["secondLooks"], withLook["requests"]);
    EXPECT_GT(withLook["sources"]["aiplc"]["secondLook"], 0);
    if (withLook["requestsFailed"] == 0) {  // the machine is not too busy
        EXPECT_EQ(withLook["sources"]["aiplc"]["secondLook"], 20);
    }
    EXPECT_NE(Values("lsd").at("aiplc.gap1"), Values("lsd").at("codec.gap1"));
    EXPECT_THAT(m_tables, HasSubstr("secondLook "));

    m_options.receiving.noSecondLook = true;
    Run();
    const Json without = m_report["files"][0];
    EXPECT_TRUE(m_gates.empty());
    EXPECT_FALSE(m_report["secondLook"]);
    EXPECT_EQ(without["secondLooks"], 0);
    EXPECT_EQ(without["sources"]["aiplc"], without["sources"]["codec"]);
    const DecoderFacts &decoder = DecoderFactsAt(host::ReceiverOptions{}.decoderComplexity);
    const std::string codec = decoder.enhancement         ? "enhanced"
                              : decoder.neuralConcealment ? "neural"
                                                          : "codec";
    EXPECT_EQ(Values("lsd").at("aiplc.gap1"), Values("lsd").at(codec + ".gap1"));
}

TEST_F(CompareTest, At48KhzTheSameGapsAreMeasured) {
    m_options.inputs = {Write("talk.wav", WavFile(host::SpeechLike(48000, 3.0), 48000))};
    m_options.sampleRate = 48000;
    Lose("00000000000000000011");
    Run();
    EXPECT_EQ(m_report["rateHz"], 48000);
    const Json &file = m_report["files"][0];
    ASSERT_EQ(file["gaps"].size(), 7U);
    EXPECT_EQ(file["gaps"][1]["first"], 38);
    EXPECT_EQ(file["gaps"][1]["frames"], 2);
    const auto mcd = Values("mcd");
    EXPECT_EQ(mcd.at("ideal.gap2-3"), 0.0);
    EXPECT_GT(mcd.at("silence.gap2-3"), mcd.at("codec.gap2-3"));
    EXPECT_NE(mcd.at("aiplc.gap2-3"), mcd.at("codec.gap2-3"));
    EXPECT_GT(Values("joinLevel").at("silence.call"), 20.0);
    const double estoi = Values("estoi").at("codec.call");
    EXPECT_TRUE(estoi > 0.5 && estoi < 1.0) << estoi;
}

// Three packets come too late and one never came: that one has no reference.
TEST_F(CompareTest, CaptureHasItsOwnLosses) {
    std::vector<std::pair<uint64_t, Bytes>> arrivals;
    for (const host::RtpPacket &packet : host::Speech({.sampleRate = 16000}, 3.0)) {
        const uint16_t number = packet.sequenceNumber;
        if (number == 80) continue;
        const uint64_t late = number >= 50 && number < 53 ? 300000 : number % 3 * 5000;
        arrivals.emplace_back(uint64_t{number} * 20000 + late,
                              Rtp(1, 96, number, packet.timestamp, packet.payload));
    }
    std::ranges::stable_sort(arrivals, {}, [](const auto &one) { return one.first; });
    Bytes capture = CaptureHeader();
    for (const auto &[timeUs, rtp] : arrivals)
        capture = Join({capture, Frame(timeUs, rtp)});
    m_options.inputs = {Write("call.pcap", capture)};
    Run();
    EXPECT_EQ(m_report["losses"][0]["id"], "own");
    const Json &gaps = m_report["files"][0]["gaps"];
    ASSERT_EQ(gaps.size(), 2U);
    EXPECT_EQ(gaps[0]["first"], 50);
    EXPECT_EQ(gaps[0]["frames"], 3);
    EXPECT_EQ(gaps[0]["scores"]["ideal"]["lsd"], 0.0);
    EXPECT_GT(gaps[0]["scores"]["codec"]["lsd"], 1.0);
    EXPECT_EQ(gaps[1]["first"], 80);
    EXPECT_TRUE(gaps[1]["scores"].empty());
}

TEST_F(CompareTest, LossesAreSeededAndDoNotDependOnTheNumberOfJobs) {
    m_options.inputs.push_back(Write("other.wav", WavFile(host::SpeechLike(16000, 2.0), 16000)));
    m_options.losses.percents = {10.0, 30.0};
    m_options.losses.meanBursts = {2.0};
    const auto gapsAndCodec = [this](int jobs, uint64_t seed) {
        m_options.jobs = jobs;
        m_options.losses.seed = seed;
        Run();
        Json result = Json::array();
        for (const Json &file : m_report["files"]) {
            Json gaps = file["gaps"];
            for (Json &gap : gaps)
                gap["scores"].erase("aiplc");  // may hear of a busy machine
            result.push_back({file["name"], file["loss"], gaps});
        }
        return result;
    };
    const Json one = gapsAndCodec(1, 5);
    EXPECT_EQ(one, gapsAndCodec(3, 5));
    EXPECT_NE(one, gapsAndCodec(3, 6));
    EXPECT_NE(one[0][2], one[1][2]);  // the calls lose different packets
    EXPECT_EQ(one[3][0], "other.wav");
    EXPECT_EQ(one[3][1], "loss30-burst2");
}

TEST_F(CompareTest, PageHoldsTheSoundThatFits) {
    m_options.losses.percents = {10.0, 20.0};
    Run();
    const Json page = PageReport();
    const auto size = static_cast<double>(page["files"][0]["audio"].dump().size());
    EXPECT_THAT(page["files"][0]["audio"]["codec"].get<std::string>(),
                testing::StartsWith("data:audio/flac;base64,ZkxhQ"));  // "fLaC"
    EXPECT_TRUE(page["files"][1].contains("audio"));
    EXPECT_FALSE(m_report["files"][0].contains("audio"));

    // Half of it leaves excerpts of both calls, with the gap that aiplc came out worst in.
    m_options.audioLimitMb = size / 1e6;
    m_options.quiet = false;
    testing::internal::CaptureStderr();
    Run();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("excerpts"));
    const Json cut = PageReport();
    double kept = 0.0;
    for (const Json &file : cut["files"]) {
        kept += static_cast<double>(file["audio"].dump().size());
        const auto lsd = [](const Json &gap) { return gap["scores"]["aiplc"].value("lsd", 0.0); };
        const Json worst = *std::ranges::max_element(
            file["gaps"], [&](const Json &a, const Json &b) { return lsd(a) < lsd(b); });
        const int first = worst["first"];
        EXPECT_TRUE(std::ranges::any_of(file["excerpts"], [&](const Json &excerpt) {
            return excerpt["first"] <= first &&
                   first < excerpt["first"].get<int>() + excerpt["frames"].get<int>();
        }));
    }
    EXPECT_GT(kept, 0.6 * size);
    EXPECT_LE(kept, size);

    // The limit that the page names holds all, and one below it does not.
    for (const double below : {0.0, 0.15}) {
        m_options.audioLimitMb = cut["audioNeededMb"].get<double>() - below;
        testing::internal::CaptureStderr();
        Run();
        EXPECT_EQ(testing::internal::GetCapturedStderr().find("--audio-limit") == std::string::npos,
                  below == 0.0);
        EXPECT_EQ(PageReport().contains("audioNeededMb"), below > 0.0);
    }
}

TEST_F(CompareTest, NothingIsWrittenWhenItFails) {
    m_options.losses.percents = {5.0};
    // Cut short behind its header: only the process that decodes it can tell.
    Bytes wav = WavFile(Chirps(16000, 0.5), 16000);
    wav.resize(4000);
    m_options.inputs.push_back(Write("short.wav", wav));
    EXPECT_THAT([this] { Compare(m_options); },
                testing::ThrowsMessage<Failure>(HasSubstr("short.wav: truncated")));
    EXPECT_THAT(Names(), testing::ElementsAre("short.wav", "talk.wav"));
}

// A captured call: jitter, two packets that overtake each other, three that come too late and one
// that never came. The reference has all but that one, in their places.
TEST_F(CompareTest, ReferenceOfACaptureKnowsNoJitter) {
    const auto record = [](const OpusCall &call, CompareMethod::Id method) {
        const CallTimeline timeline(call, std::vector<bool>(call.packets.size()), 16000, 40);
        return RecordCall(timeline, MethodSetups({})[MethodIndex(method)].receiver, [](int64_t) {});
    };
    InputFile input = InputFile::Open(m_options.inputs[0]);
    OpusCall capture =
        LoadCall(input, InputKind::speechAudio, WithDefaults({}, InputKind::speechAudio)).call;
    const CallRecording straight = record(capture, CompareMethod::Id::ideal);
    capture.hasArrivalTimes = true;
    for (CallPacket &packet : capture.packets) {
        packet.timestamp += 0xFFFFF000U;  // wraps within the call
        packet.arrivalUs += int64_t{packet.sequence % 3} * 4000;
    }
    for (size_t i = 50; i < 53; ++i)
        capture.packets[i].arrivalUs += 300000;
    std::swap(capture.packets[0], capture.packets[1]);
    capture.packets.erase(capture.packets.begin() + 80);
    std::ranges::stable_sort(capture.packets, {}, &CallPacket::arrivalUs);

    const CallRecording lossy = record(capture, CompareMethod::Id::codec);
    const std::vector<bool> none(capture.packets.size(), false);
    const CallRecording ideal = record(WithoutJitter(capture, none, 40), CompareMethod::Id::ideal);
    ASSERT_EQ(ideal.firstFrame, lossy.firstFrame);
    for (int64_t frame = 0; frame < 95; ++frame) {
        const auto i = static_cast<size_t>(frame);
        EXPECT_EQ(IsConcealed(lossy.sources[i]), frame == 80 || (frame >= 50 && frame < 53))
            << frame;
        EXPECT_EQ(IsConcealed(ideal.sources[i]), frame == 80) << frame;
    }
    EXPECT_TRUE(std::equal(ideal.samples.begin(), ideal.samples.begin() + 80L * 320,
                           straight.samples.begin()));
}

}  // namespace
}  // namespace aiplc::tools
