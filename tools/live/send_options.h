// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_SEND_OPTIONS_H
#define AIPLC_TOOLS_SEND_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/input/call_options.h"
#include "tools/live/departures.h"
#include "tools/loss/loss_options.h"
#include "tools/shell/message_options.h"

namespace aiplc::tools {

// The command line of `aiplc send`.
struct SendOptions : CallOptions, MessageOptions {
    std::string input;        // "-" = standard input
    std::string destination;  // HOST:PORT
    LossOptions loss;
    Disturbance disturbance;
    int payloadType = 111;
    int redPayloadType = 63;  // of redundant audio (RFC 2198), which encoding.redundancy asks for
    std::optional<uint32_t> ssrc;    // random when not given
    std::string sdpPath;             // empty: no session description
    bool loop = false;               // begin again at the end
    std::optional<double> duration;  // seconds
};

}  // namespace aiplc::tools

#endif
