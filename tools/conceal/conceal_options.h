// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CONCEAL_OPTIONS_H
#define AIPLC_TOOLS_CONCEAL_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/input/call_options.h"
#include "tools/play/receiving_options.h"

namespace aiplc::tools {

// The packets that are lost beyond those that the input has lost already.
struct LossOptions {
    std::optional<double> lossPercent;
    std::optional<double> meanBurst;  // packets; independent losses when not set
    std::optional<uint64_t> seed;
    std::optional<std::string> tracePath;
};

// The command line of `aiplc conceal`.
struct ConcealOptions : CallOptions {
    std::string input;   // "-" = standard input
    std::string output;  // "-" = standard output
    LossOptions loss;
    ReceivingOptions receiving;
    bool keepDelay = false;
    bool requireAi = false;
    bool realtime = false;
    std::string jsonPath;    // empty: no report
    std::string framesPath;  // empty: no table
    bool quiet = false;
    bool verbose = false;
};

}  // namespace aiplc::tools

#endif
