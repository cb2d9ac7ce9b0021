// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CONCEAL_OPTIONS_H
#define AIPLC_TOOLS_CONCEAL_OPTIONS_H

#include <string>

#include "tools/input/call_options.h"
#include "tools/loss/loss_options.h"
#include "tools/play/receiving_options.h"
#include "tools/shell/message_options.h"

namespace aiplc::tools {

// The command line of `aiplc conceal`.
struct ConcealOptions : CallOptions, MessageOptions {
    std::string input;   // "-" = standard input
    std::string output;  // "-" = standard output
    LossOptions loss;
    ReceivingOptions receiving;
    bool keepDelay = false;
    bool requireAi = false;
    bool realtime = false;
    std::string jsonPath;    // empty: no report
    std::string framesPath;  // empty: no table
};

}  // namespace aiplc::tools

#endif
