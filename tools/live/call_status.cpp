// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/call_status.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "tools/shell/failure.h"
#include "tools/shell/number_text.h"

namespace aiplc::tools {
namespace {

// Milliseconds per emitted sample of a sum over them.
double MeanMs(double sum, const AiPlcReceiverStatistics &statistics) {
    const auto emitted = static_cast<double>(statistics.jitterBufferEmittedCount);
    return emitted > 0 ? 1e3 * sum / emitted : 0;
}

}  // namespace

std::string StatusLine(const CallStatus &status) {
    const AiPlcReceiverStatistics &counted = status.statistics;
    const auto received = static_cast<double>(counted.packetsReceived);
    const auto lost = static_cast<double>(std::max<int64_t>(counted.packetsLost, 0));
    const auto whole = static_cast<int>(status.seconds);
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(),
                  "%d:%02d  %.0f packets, %.1f %% lost, %.1f %% late, %.1f %% concealed, "
                  "delay %.0f ms, jitter %.1f ms",
                  whole / 60, whole % 60, received, Percent(lost, received + lost),
                  Percent(static_cast<double>(counted.packetsDiscarded), received),
                  Percent(static_cast<double>(counted.concealedSamples),
                          static_cast<double>(counted.totalSamplesReceived)),
                  MeanMs(counted.jitterBufferDelay, counted), 1e3 * counted.jitter);
    return text.data();
}

std::string StatusJson(const CallStatus &status, const char *event) {
    const AiPlcReceiverStatistics &counted = status.statistics;
    nlohmann::ordered_json json;
    json["event"] = event;
    json["seconds"] = status.seconds;
    json["ssrc"] = status.ssrc;
    json["payloadType"] = status.payloadType;
    json["from"] = status.from;
    json["senderLeft"] = status.senderLeft;
    json["receiverReports"] = status.receiverReports;
    json["interruptions"] = status.interruptions;
    json["predictorRunning"] = status.predictorRunning;
    json["packetsReceived"] = counted.packetsReceived;
    json["packetsLost"] = counted.packetsLost;
    json["packetsDiscarded"] = counted.packetsDiscarded;
    json["packetsDuplicated"] = counted.packetsDuplicated;
    json["packetsUndecodable"] = counted.packetsUndecodable;
    json["packetsForeign"] = counted.packetsForeign;
    json["fecPacketsReceived"] = counted.fecPacketsReceived;
    json["fecPacketsDiscarded"] = counted.fecPacketsDiscarded;
    json["redundantBlocksReceived"] = counted.redundantBlocksReceived;
    json["redundantBlocksUsed"] = counted.redundantBlocksUsed;
    json["bytesReceived"] = counted.bytesReceived;
    json["jitter"] = counted.jitter;
    json["jitterBufferDelay"] = counted.jitterBufferDelay;
    json["jitterBufferTargetDelay"] = counted.jitterBufferTargetDelay;
    json["jitterBufferEmittedCount"] = counted.jitterBufferEmittedCount;
    json["insertedSamplesForDeceleration"] = counted.insertedSamplesForDeceleration;
    json["removedSamplesForAcceleration"] = counted.removedSamplesForAcceleration;
    json["totalSamplesReceived"] = counted.totalSamplesReceived;
    json["concealedSamples"] = counted.concealedSamples;
    json["silentConcealedSamples"] = counted.silentConcealedSamples;
    json["concealmentEvents"] = counted.concealmentEvents;
    json["totalSamplesDuration"] = counted.totalSamplesDuration;
    json["totalAudioEnergy"] = counted.totalAudioEnergy;
    json["timelineRestarts"] = counted.timelineRestarts;
    json["sourceChanges"] = counted.sourceChanges;
    json["requests"] = counted.requests;
    json["requestsFailed"] = counted.requestsFailed;
    json["requestTimeP50Ms"] = counted.requestTimeP50Ms;
    json["requestTimeP99Ms"] = counted.requestTimeP99Ms;
    for (size_t i = 0; i < AIPLC_FRAME_SOURCES; ++i)
        json["framesBySource"][AiPlcFrameSourceName(static_cast<int32_t>(i))] =
            counted.framesBySource[i];
    return json.dump();
}

TerminalLine::TerminalLine(bool wanted) : m_visible(wanted && isatty(STDERR_FILENO) == 1) {}

void TerminalLine::Show(const std::string &text) {
    if (!m_visible) return;
    m_drawn = true;
    std::fprintf(stderr, "\r%s\x1b[K", text.c_str());
    std::fflush(stderr);
}

void TerminalLine::Clear() {
    if (m_drawn) std::fputs("\r\x1b[K", stderr);
    m_drawn = false;
}

LineFile::LineFile(const std::string &path) : m_name(path == "-" ? "standard output" : path) {
    if (path.empty()) return;
    m_file.reset(path == "-" ? stdout : std::fopen(path.c_str(), "we"));
    if (!m_file) throw Failure(m_name, std::string("cannot be written: ") + strerror(errno));
}

void LineFile::Write(const std::string &line) {
    if (!m_file) return;
    if (std::fputs((line + "\n").c_str(), m_file.get()) >= 0 && std::fflush(m_file.get()) == 0)
        return;
    if (errno == EPIPE) throw ReaderGone();
    throw Failure(m_name, std::string("cannot be written: ") + strerror(errno));
}

}  // namespace aiplc::tools
