// SPDX-License-Identifier: BSD-2-Clause

#include <opus/opus.h>

#include <array>
#include <cmath>
#include <ctime>
#include <nlohmann/json.hpp>

#include "tools/compare/compare_format.h"
#include "tools/compare/compare_method.h"
#include "tools/play/model_facts.h"
#include "tools/shell/number_text.h"

namespace aiplc::tools {
namespace {

using Json = nlohmann::ordered_json;

// Six digits: what follows is noise.
double Rounded(double value) {
    return ParseNumber(NumberText(value, 6)).value_or(value);
}

void PutInterval(Json &json, const measure::Estimate &estimate) {
    json["value"] = Rounded(estimate.value);
    if (!estimate.low) return;
    json["low"] = Rounded(*estimate.low);
    json["high"] = Rounded(*estimate.high);
}

Json FigureJson(const CompareFigure &figure) {
    Json json;
    json["method"] = CompareMethods()[figure.method].name;
    json["kind"] = Info(figure.kind).id;
    json["measure"] = Info(figure.measure).id;
    PutInterval(json, figure.estimate);
    json["count"] = std::llround(figure.estimate.count);
    if (figure.versusCodec) PutInterval(json["vsCodec"], *figure.versusCodec);
    return json;
}

std::string Now() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

Json MethodsJson(std::span<const MethodSetup> setups) {
    Json methods = Json::array();
    for (size_t i = 0; i < setups.size(); ++i) {
        const CompareMethod &method = CompareMethods()[i];
        const MethodSetup &setup = setups[i];
        Json json = {{"id", method.name}, {"name", method.title}, {"about", setup.about}};
        // Left out where libopus has no such setting.
        if (setup.decoder.hasComplexity)
            json["decoderComplexity"] = setup.receiver.decoderComplexity;
        json["enhances"] = setup.decoder.enhancement;
        methods.push_back(json);
    }
    return methods;
}

Json LossesJson(const std::vector<LossCondition> &losses) {
    Json list = Json::array();
    for (const LossCondition &loss : losses) {
        Json json = {{"id", loss.id}, {"name", loss.name}};
        if (loss.percent) json["percent"] = *loss.percent;
        if (loss.meanBurst) json["burst"] = *loss.meanBurst;
        list.push_back(json);
    }
    return list;
}

Json MeasuresJson() {
    Json list = Json::array();
    for (size_t i = 0; i < kCompareMeasures; ++i) {
        const MeasureInfo &info = Info(static_cast<CompareMeasure>(i));
        list.push_back(
            {{"id", info.id}, {"name", info.name}, {"unit", info.unit}, {"better", info.better}});
    }
    return list;
}

Json KindsJson() {
    Json list = Json::array();
    for (size_t i = 0; i < kCompareKinds; ++i) {
        const KindInfo &info = Info(static_cast<CompareKind>(i));
        list.push_back({{"id", info.id}, {"name", info.name}});
    }
    return list;
}

Json GapJson(const GapScores &gap) {
    Json json = {{"first", gap.first}, {"frames", gap.frames}};
    Json scores = Json::object();
    for (size_t method = 0; method < gap.methods.size(); ++method) {
        for (size_t i = 0; i < kGapMeasures.size(); ++i) {
            const measure::Term &term = gap.methods[method].inside[i];
            if (term.count <= 0.0) continue;
            scores[CompareMethods()[method].name][Info(kGapMeasures[i]).id] =
                Rounded(term.sum / term.count);
        }
    }
    json["scores"] = scores;
    return json;
}

Json SourcesJson(const CallRecording &recording) {
    std::array<uint64_t, AIPLC_FRAME_SOURCES> counts{};
    for (const AiPlcFrameSource source : recording.sources)
        ++counts[static_cast<size_t>(source)];
    Json json = Json::object();
    for (size_t i = 0; i < counts.size(); ++i) {
        const auto source = static_cast<AiPlcFrameSource>(i);
        if (counts[i] > 0) json[std::string(AiPlcFrameSourceName(source))] = counts[i];
    }
    return json;
}

}  // namespace

Json ReportHead(const CompareOptions &options, std::span<const MethodSetup> setups,
                const std::vector<LossCondition> &losses, ResampledUnit unit) {
    Json json;
    json["format"] = "aiplc-compare-1";
    json["created"] = Now();
    json["command"] = options.command;
    json["version"] = AIPLC_VERSION;
    json["libopus"] = opus_get_version_string();
    json["model"] = ModelLine();
    json["decoderComplexity"] = ReceiverFor(options.receiving).decoderComplexity;
    json["secondLook"] = !options.receiving.noSecondLook;
    json["predictor"] = options.receiving.PredictorName();
    json["rateHz"] = options.sampleRate;
    json["frameMs"] = 20;
    json["resampled"] = unit == ResampledUnit::calls ? "calls" : "gaps";
    json["methods"] = MethodsJson(setups);
    json["losses"] = LossesJson(losses);
    json["measures"] = MeasuresJson();
    json["kinds"] = KindsJson();
    return json;
}

Json FileEntry(const std::string &name, const std::string &loss,
               std::span<const CallRecording> recordings, const CallScores &scores,
               std::span<const CompareFigure> figures) {
    Json json;
    json["name"] = name;
    json["loss"] = loss;
    json["frames"] = recordings.front().Frames();
    json["gaps"] = Json::array();
    for (const GapScores &gap : scores.gaps)
        json["gaps"].push_back(GapJson(gap));
    for (size_t method = 0; method < recordings.size(); ++method)
        json["sources"][CompareMethods()[method].name] = SourcesJson(recordings[method]);
    const CallRecording &aiplc = recordings[MethodIndex(CompareMethod::Id::aiplc)];
    json["requests"] = aiplc.requests;
    json["requestsFailed"] = aiplc.requestsFailed;
    json["secondLooks"] = aiplc.secondLooks;
    json["figures"] = Json::array();
    for (const CompareFigure &figure : figures)
        json["figures"].push_back(FigureJson(figure));
    return json;
}

std::vector<Json> FigureEntries(const std::string &loss, std::span<const CompareFigure> figures) {
    std::vector<Json> entries;
    for (const CompareFigure &figure : figures) {
        Json json = {{"loss", loss}};
        json.update(FigureJson(figure));
        entries.push_back(json);
    }
    return entries;
}

}  // namespace aiplc::tools
