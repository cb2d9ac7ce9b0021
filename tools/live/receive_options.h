// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RECEIVE_OPTIONS_H
#define AIPLC_TOOLS_RECEIVE_OPTIONS_H

#include <aiplc/receiver.h>

#include <cstdint>
#include <optional>
#include <string>

#include "tools/play/receiving_options.h"
#include "tools/shell/message_options.h"

namespace aiplc::tools {

// How long packets are waited for.
struct JitterBufferOptions {
    int32_t kind = AIPLC_JITTER_ADAPTIVE;  // AiPlcJitterBuffer
    int32_t minDelayMs = 0;
    int32_t maxDelayMs = 500;
};

// The command line of `aiplc receive`.
struct ReceiveOptions : MessageOptions {
    std::string source;               // a port, HOST:PORT, or a file with a session description
    std::string output;               // "-" = samples to standard output; empty: none
    std::optional<std::string> card;  // device of the sound card
    int sampleRate = 48000;           // 16000 or 48000
    std::optional<int> payloadType;
    std::optional<int> redPayloadType;  // of redundant audio (RFC 2198)
    ReceivingOptions receiving;
    JitterBufferOptions jitterBuffer;
    bool rtcpMux = false;
    bool noRtcp = false;
    std::string jsonLinesPath;       // empty: none
    std::optional<double> duration;  // seconds of audio
    bool once = false;               // end with the sender's goodbye
};

// "MIN..MAX" or "MS". Throws CLI::ValidationError.
JitterBufferOptions ParseJitterBuffer(const std::string &text);

}  // namespace aiplc::tools

#endif
