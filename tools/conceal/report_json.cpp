// SPDX-License-Identifier: BSD-2-Clause

#include <opus/opus.h>

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/conceal/conceal_report.h"

namespace aiplc::tools {
namespace {

// Members keep the order in which they are written here.
using Json = nlohmann::ordered_json;

constexpr std::array<const char *, 9> kModeNames = {
    "none",  "gap1Ahead2", "gap1Ahead1",        "gap2Ahead2",       "gap2Ahead1",
    "burst", "unused",     "gap1Ahead2OpusPlc", "gap1Ahead1OpusPlc"};

template <typename T>
Json OrNull(const std::optional<T> &value) {
    return value ? Json(*value) : Json(nullptr);
}

// Thousandths are all that a measured float can say.
double Rounded(float value) {
    return std::round(static_cast<double>(value) * 1e3) / 1e3;
}

Json OptionsJson(const ConcealOptions &options) {
    const EncodingOptions &encoding = options.encoding;
    const LossOptions &loss = options.loss;
    Json json;
    json["input"] = options.input;
    json["output"] = options.output;
    json["rate"] = OrNull(options.sampleRate);
    json["bitrate"] = OrNull(encoding.bitrate);
    json["frameMs"] = OrNull(encoding.frameMs);
    json["complexity"] = OrNull(encoding.complexity);
    json["bandwidth"] = OrNull(encoding.bandwidth);
    json["fec"] = encoding.fec;
    json["redundancy"] = OrNull(encoding.redundancy);
    json["dtx"] = encoding.dtx;
    json["lossPercent"] = OrNull(loss.lossPercent);
    json["meanBurst"] = OrNull(loss.meanBurst);
    json["seed"] = OrNull(loss.seed);
    json["lossTrace"] = OrNull(loss.tracePath);
    json["ssrc"] = OrNull(options.stream.ssrc);
    json["payloadType"] = OrNull(options.stream.payloadType);
    json["redPayloadType"] = OrNull(options.stream.redPayloadType);
    json["jitterBufferMs"] = OrNull(options.jitterBufferMs);
    json["decoderComplexity"] = ReceiverFor(options.receiving).decoderComplexity;
    json["keepDelay"] = options.keepDelay;
    json["ai"] = options.receiving.UsesNetwork();
    json["secondLook"] = !options.receiving.noSecondLook;
    json["predictor"] = options.receiving.PredictorName();
    json["realtime"] = options.realtime;
    return json;
}

Json InputJson(const ConcealReport &report) {
    Json json;
    json["name"] = report.inputName;
    json["kind"] = InputKindName(report.source.kind);
    if (report.source.kind == InputKind::speechAudio) {
        json["sampleRate"] = report.source.audioRate;
        json["channels"] = report.source.audioChannels;
    }
    if (report.source.kind == InputKind::capture) {
        const std::vector<RtpStream> &streams = report.source.streams;
        const RtpStream &chosen = streams[report.source.stream];
        json["ssrc"] = chosen.ssrc;
        json["payloadType"] = chosen.payloadType;
        json["otherStreams"] = streams.size() - 1;
        json["paddingOnlyPackets"] = chosen.probes;
        for (const RtpStream &stream : streams) {
            json["streams"].push_back({{"ssrc", stream.ssrc},
                                       {"payloadType", stream.payloadType},
                                       {"packets", stream.packets},
                                       {"seconds", stream.Seconds()},
                                       {"from", EndpointText(stream.from)},
                                       {"to", EndpointText(stream.to)}});
        }
    }
    json["packets"] = report.packets;
    json["packetsMissing"] = report.packetsMissing;
    json["packetsDropped"] = report.packetsDropped;
    json["payloadBitrate"] = std::llround(report.payloadBitrate);
    return json;
}

// Names and meanings of the W3C's "Identifiers for WebRTC's Statistics API" first, then our own.
Json StatisticsJson(const AiPlcReceiverStatistics &statistics) {
    Json json;
    json["packetsReceived"] = statistics.packetsReceived;
    json["packetsLost"] = statistics.packetsLost;
    json["packetsDiscarded"] = statistics.packetsDiscarded;
    json["packetsDuplicated"] = statistics.packetsDuplicated;
    json["fecPacketsReceived"] = statistics.fecPacketsReceived;
    json["fecPacketsDiscarded"] = statistics.fecPacketsDiscarded;
    json["redundantBlocksReceived"] = statistics.redundantBlocksReceived;
    json["redundantBlocksUsed"] = statistics.redundantBlocksUsed;
    json["bytesReceived"] = statistics.bytesReceived;
    json["totalSamplesReceived"] = statistics.totalSamplesReceived;
    json["concealedSamples"] = statistics.concealedSamples;
    json["silentConcealedSamples"] = statistics.silentConcealedSamples;
    json["concealmentEvents"] = statistics.concealmentEvents;
    json["totalSamplesDuration"] = statistics.totalSamplesDuration;
    json["totalAudioEnergy"] = statistics.totalAudioEnergy;
    json["packetsUndecodable"] = statistics.packetsUndecodable;
    json["timelineRestarts"] = statistics.timelineRestarts;
    Json sources = Json::object();
    for (size_t i = 0; i < AIPLC_FRAME_SOURCES; ++i) {
        const auto source = static_cast<AiPlcFrameSource>(i);
        sources[std::string(AiPlcFrameSourceName(source))] = statistics.framesBySource[i];
    }
    json["framesBySource"] = sources;
    Json modes = Json::object();
    for (size_t i = 0; i < kModeNames.size(); ++i) {
        if (i != 6) modes[kModeNames[i]] = statistics.decisionsByMode[i];
    }
    json["decisionsByMode"] = modes;
    json["decisionsHeldOff"] = statistics.decisionsHeldOff;
    return json;
}

// The decoder's concealment and enhancement, which may be less than was asked for.
Json DecoderJson(const ConcealOptions &options, const DecoderFacts &decoder) {
    Json json;
    json["libopus"] = opus_get_version_string();
    json["complexity"] =
        decoder.hasComplexity ? Json(ReceiverFor(options.receiving).decoderComplexity) : Json();
    json["neuralConcealment"] = decoder.neuralConcealment;
    json["enhancement"] = decoder.enhancement;
    return json;
}

Json WorkerJson(const ConcealReport &report) {
    const AiPlcReceiverStatistics &statistics = report.statistics;
    Json json;
    json["running"] = report.predictorRunning;
    json["initTimeMs"] = Rounded(statistics.initTimeMs);
    json["requests"] = statistics.requests;
    json["requestsFailed"] = statistics.requestsFailed;
    json["requestsByKind"] = {
        {"library",
         {{"made", statistics.requests - statistics.secondLooks},
          {"failed", statistics.requestsFailed - statistics.secondLooksFailed}}},
        {"secondLook",
         {{"made", statistics.secondLooks}, {"failed", statistics.secondLooksFailed}}}};
    if (statistics.requests == 0) {
        json["requestTimeMs"] = nullptr;
    } else {
        json["requestTimeMs"] = {{"p50", Rounded(statistics.requestTimeP50Ms)},
                                 {"p99", Rounded(statistics.requestTimeP99Ms)},
                                 {"max", Rounded(statistics.requestTimeMaxMs)}};
    }
    return json;
}

}  // namespace

std::string ReportJson(const ConcealOptions &options, const ConcealReport &report) {
    Json json;
    json["version"] = AIPLC_VERSION;
    json["options"] = OptionsJson(options);
    json["input"] = InputJson(report);
    json["output"] = {{"sampleRate", report.sampleRate},
                      {"samples", report.samples},
                      {"duration", static_cast<double>(report.samples) / report.sampleRate},
                      {"delaySamples", report.delay},
                      {"delayKept", options.keepDelay}};
    json["decoder"] = DecoderJson(options, report.decoder);
    json["statistics"] = StatisticsJson(report.statistics);
    json["worker"] = WorkerJson(report);
    json["logSpectralDistanceDb"] = OrNull(report.logSpectralDistanceDb);
    json["realTimeFactor"] = report.RealTimeFactor();
    json["missedTicks"] = OrNull(report.missedTicks);
    // A file name may hold bytes that are no UTF-8; those become U+FFFD.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace aiplc::tools
