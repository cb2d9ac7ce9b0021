// SPDX-License-Identifier: BSD-2-Clause

#include <array>
#include <cstdarg>
#include <cstdio>

#include "tools/conceal/conceal_report.h"
#include "tools/shell/number_text.h"

namespace aiplc::tools {
namespace {

// printf into a growing text; a line longer than 511 bytes is cut.
__attribute__((format(printf, 2, 3))) void Add(std::string &text, const char *format, ...) {
    std::array<char, 512> line{};
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyser misses va_start here.
    std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    text += line.data();
}

void AddInput(std::string &text, const ConcealReport &report) {
    Add(text, "input     %s: %s", report.inputName.c_str(), InputKindName(report.source.kind));
    if (report.source.kind == InputKind::speechAudio) {
        Add(text, ", %d Hz, %d channel%s", report.source.audioRate, report.source.audioChannels,
            report.source.audioChannels == 1 ? "" : "s");
    }
    if (report.source.kind == InputKind::capture) {
        const RtpStream &stream = report.source.streams[report.source.stream];
        Add(text, ", SSRC 0x%08x, payload type %d", stream.ssrc, stream.payloadType);
    }
    text += '\n';
}

void AddPackets(std::string &text, const ConcealReport &report) {
    const auto packets = static_cast<unsigned long long>(report.packets);
    unsigned long long lost = report.packetsMissing;
    lost += report.packetsDropped;
    if (report.source.kind == InputKind::capture) {
        Add(text,
            "packets   %llu captured, %llu of them lost by simulation; in all %lld missing, "
            "%llu too late",
            packets, lost, static_cast<long long>(report.statistics.packetsLost),
            static_cast<unsigned long long>(report.statistics.packetsDiscarded));
    } else {
        Add(text, "packets   %llu, of those lost %llu (%.2f %%)", packets, lost,
            Percent(static_cast<double>(lost), static_cast<double>(packets)));
    }
    const auto undecodable = static_cast<unsigned long long>(report.statistics.packetsUndecodable);
    if (undecodable > 0) Add(text, ", %llu not decodable", undecodable);
    text += '\n';
}

void AddSources(std::string &text, const AiPlcReceiverStatistics &statistics) {
    text += "frames   ";
    for (size_t i = 0; i < AIPLC_FRAME_SOURCES; ++i) {
        const auto source = static_cast<AiPlcFrameSource>(i);
        const uint64_t frames = statistics.framesBySource[i];
        if (frames == 0 || source == AIPLC_SOURCE_STARTUP) continue;
        const std::string_view name = AiPlcFrameSourceName(source);
        Add(text, " %.*s %llu", static_cast<int>(name.size()), name.data(),
            static_cast<unsigned long long>(frames));
    }
    text += '\n';
}

void AddWorker(std::string &text, const ConcealOptions &options, const ConcealReport &report) {
    const AiPlcReceiverStatistics &statistics = report.statistics;
    if (!options.receiving.UsesNetwork()) {
        text += "network   not used\n";
    } else if (!report.predictorRunning) {
        text += "worker    not running: the codec concealed everything\n";
    } else {
        Add(text,
            "worker    %llu request%s, %llu of them second looks at single losses; %llu failed",
            static_cast<unsigned long long>(statistics.requests),
            statistics.requests == 1 ? "" : "s",
            static_cast<unsigned long long>(statistics.secondLooks),
            static_cast<unsigned long long>(statistics.requestsFailed));
        if (statistics.requests > 0) {
            Add(text, "; request time p50 %.2f ms, p99 %.2f ms, max %.2f ms",
                static_cast<double>(statistics.requestTimeP50Ms),
                static_cast<double>(statistics.requestTimeP99Ms),
                static_cast<double>(statistics.requestTimeMaxMs));
        }
        text += '\n';
    }
}

}  // namespace

std::string ReportSummary(const ConcealOptions &options, const ConcealReport &report) {
    const AiPlcReceiverStatistics &statistics = report.statistics;
    std::string text;
    AddInput(text, report);
    AddPackets(text, report);
    Add(text, "concealed %.2f %% of the audio in %llu gap%s\n",
        Percent(static_cast<double>(statistics.concealedSamples),
                static_cast<double>(statistics.totalSamplesReceived)),
        static_cast<unsigned long long>(statistics.concealmentEvents),
        statistics.concealmentEvents == 1 ? "" : "s");
    AddSources(text, statistics);
    Add(text, "decoder   %s\n",
        DecoderLine(ReceiverFor(options.receiving).decoderComplexity, report.decoder).c_str());
    AddWorker(text, options, report);
    if (report.logSpectralDistanceDb) {
        Add(text, "distance  %.2f dB log-spectral, concealed speech against the loss-free call\n",
            *report.logSpectralDistanceDb);
    }
    Add(text, "speed     real-time factor %.4f", report.RealTimeFactor());
    if (report.missedTicks) {
        Add(text, ", %lld ticks missed", static_cast<long long>(*report.missedTicks));
    }
    text += '\n';
    Add(text, "output    %s: %.3f s at %d Hz, delay of %.1f ms %s\n",
        options.output == "-" ? "standard output" : options.output.c_str(),
        static_cast<double>(report.samples) / report.sampleRate, report.sampleRate,
        1000.0 * static_cast<double>(report.delay) / report.sampleRate,
        options.keepDelay ? "kept" : "taken off");
    return text;
}

}  // namespace aiplc::tools
