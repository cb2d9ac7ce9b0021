// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CALL_OPTIONS_H
#define AIPLC_TOOLS_CALL_OPTIONS_H

#include <optional>
#include <string>

#include "tools/input/rtp_capture.h"

namespace aiplc::tools {

// How speech audio becomes a call.
struct EncodingOptions {
    std::optional<int> bitrate;            // bit/s
    std::optional<int> frameMs;            // 10, 20, 40 or 60
    std::optional<int> complexity;         // 0..10
    std::optional<std::string> bandwidth;  // auto, nb, mb, wb, swb or fb
    bool fec = false;
    std::optional<int> redundancy;  // 1..4 packets repeated in each (RFC 2198)
    bool dtx = false;
};

// How an input becomes a call. Options that are not set were not given; WithDefaults
// (call_loader.h) fills in those that apply.
struct CallOptions {
    EncodingOptions encoding;
    StreamChoice stream;
    std::optional<int> jitterBufferMs;   // captures only
    std::optional<int> sampleRate;       // 16000 or 48000
    std::optional<double> lossExpected;  // percent, for an encoder with FEC; not set: by a trace
};

}  // namespace aiplc::tools

#endif
