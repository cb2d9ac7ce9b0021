// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CALL_LOADER_H
#define AIPLC_TOOLS_CALL_LOADER_H

#include <cstdint>
#include <optional>
#include <string>

#include "conceal_options.h"
#include "input_file.h"
#include "opus_call.h"

namespace aiplc::tools {

// A call ready to be played, and where it came from.
struct LoadedCall {
    OpusCall call;
    InputKind kind = InputKind::unknown;
    int sampleRate = 16000;  // of the output: 16000 or 48000 Hz
    // Speech audio only.
    int audioRate = 0;
    int audioChannels = 0;
    // Captures only.
    uint32_t ssrc = 0;
    int payloadType = 0;
    uint64_t otherStreams = 0;
    uint64_t probes = 0;
};

// "speech audio", "Ogg Opus" and so on.
const char *InputKindName(InputKind kind);

// Reads the call of an input of any kind; speech audio is encoded. Throws Failure, UsageError for
// options that do not go with the kind of input, Interrupted.
LoadedCall LoadCall(InputFile &input, const ConcealOptions &options);

}  // namespace aiplc::tools

#endif
