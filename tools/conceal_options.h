// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CONCEAL_OPTIONS_H
#define AIPLC_TOOLS_CONCEAL_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

#include "receiving_options.h"
#include "rtp_capture.h"

namespace aiplc::tools {

// How speech audio becomes a call.
struct EncodingOptions {
    std::optional<int> bitrate;            // bit/s
    std::optional<int> frameMs;            // 10, 20, 40 or 60
    std::optional<int> complexity;         // 0..10
    std::optional<std::string> bandwidth;  // auto, nb, mb, wb, swb or fb
    bool fec = false;
    bool dtx = false;
};

// Which packets are lost beyond what the input has lost already.
struct LossOptions {
    std::optional<double> lossPercent;
    std::optional<double> meanBurst;  // packets; independent losses when not set
    std::optional<uint64_t> seed;
    std::optional<std::string> tracePath;
};

// The command line of `aiplc conceal`. What is not set was not given; WithDefaults (call_loader.h)
// fills in what applies.
struct ConcealOptions {
    std::string input;   // "-" = standard input
    std::string output;  // "-" = standard output
    EncodingOptions encoding;
    LossOptions loss;
    ReceivingOptions receiving;
    StreamChoice stream;
    std::optional<int> jitterBufferMs;  // captures only
    std::optional<int> sampleRate;      // 16000 or 48000
    bool keepDelay = false;
    bool noAi = false;
    bool requireAi = false;
    bool realtime = false;
    std::string jsonPath;    // empty: no report
    std::string framesPath;  // empty: no table
    bool quiet = false;
    bool verbose = false;
};

}  // namespace aiplc::tools

#endif
