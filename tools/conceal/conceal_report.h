// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CONCEAL_REPORT_H
#define AIPLC_TOOLS_CONCEAL_REPORT_H

#include <aiplc/receiver.h>

#include <cstdint>
#include <optional>
#include <string>

#include "tools/conceal/conceal_options.h"
#include "tools/input/call_loader.h"
#include "tools/play/decoder_facts.h"

namespace aiplc::tools {

// The figures of one run of `aiplc conceal`.
struct ConcealReport {
    std::string inputName;
    CallSource source;
    int sampleRate = 0;  // Hz, of the output
    int64_t samples = 0;
    int64_t delay = 0;            // samples by which the output trails the input
    uint64_t packets = 0;         // of the call, lost ones included
    uint64_t packetsMissing = 0;  // already lost in the input
    uint64_t packetsDropped = 0;  // lost by simulation
    double payloadBitrate = 0.0;  // bit/s as sent, lost packets included

    DecoderFacts decoder;  // at the complexity asked for
    bool predictorRunning = false;
    AiPlcReceiverStatistics statistics{};
    std::optional<double> logSpectralDistanceDb;
    double playedSeconds = 0.0;          // of audio
    double receiverSeconds = 0.0;        // that the receiver worked for it
    std::optional<int64_t> missedTicks;  // real time only

    // Time the receiver worked per second of audio; below 1 is faster than real time.
    [[nodiscard]] double RealTimeFactor() const {
        return playedSeconds > 0.0 ? receiverSeconds / playedSeconds : 0.0;
    }
};

// The report as JSON text: options, input, every counter.
std::string ReportJson(const ConcealOptions &options, const ConcealReport &report);

// The report on one screen.
std::string ReportSummary(const ConcealOptions &options, const ConcealReport &report);

}  // namespace aiplc::tools

#endif
