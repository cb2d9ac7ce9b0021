// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_OPTIONS_H
#define AIPLC_TOOLS_COMPARE_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/input/call_options.h"
#include "tools/loss/loss_condition.h"
#include "tools/play/receiving_options.h"
#include "tools/shell/message_options.h"

namespace aiplc::tools {

inline constexpr double kMaxAudioLimitMb = 2000.0;

// The command line of `aiplc compare`.
struct CompareOptions : MessageOptions {
    std::vector<std::string> inputs;
    EncodingOptions encoding;
    // Of aiplc, and of enhanced where it enhances. In this process: the load of the machine, which
    // compare itself makes, must not change a figure.
    ReceivingOptions receiving{.predictor = AIPLC_PREDICTOR_IN_PROCESS};
    StreamChoice stream;
    std::optional<int> jitterBufferMs;  // captures only
    int sampleRate = 16000;             // 16000 or 48000

    LossGrid losses;  // file number n gets seed + n

    std::optional<int> jobs;  // processes at a time; one per processor when not given
    std::string jsonPath;     // empty: none
    std::string csvPath;
    std::string htmlPath;
    double audioLimitMb = 40.0;          // of sound in the page, as it is written there; 10^6 bytes
    std::vector<std::string> failGates;  // "aiplc.lsd > codec.lsd"
    bool showKinds = false;
    std::string command;  // as the user gave it
};

}  // namespace aiplc::tools

#endif
