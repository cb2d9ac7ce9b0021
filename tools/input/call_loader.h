// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CALL_LOADER_H
#define AIPLC_TOOLS_CALL_LOADER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/input/call_options.h"
#include "tools/input/input_file.h"
#include "tools/input/opus_call.h"

namespace aiplc::tools {

// Where a call came from.
struct CallSource {
    InputKind kind = InputKind::unknown;
    int audioRate = 0;      // Hz, speech audio only
    int audioChannels = 0;  // speech audio only
    // Captures only: the streams in it, and which of them is the call.
    std::vector<RtpStream> streams;
    size_t stream = 0;
};

// A call ready to be played.
struct LoadedCall {
    OpusCall call;
    CallSource source;
    int sampleRate = 16000;  // of the output: 16000 or 48000 Hz
    // Sentences about the input that do not keep the call from being played.
    std::vector<std::string> notes;
    std::vector<std::string> warnings;  // the output may not be what the user expects
};

// "speech audio", "Ogg Opus" and so on.
const char *InputKindName(InputKind kind);

// The options with the defaults of everything that applies to this kind of input: 24 kbit/s, 20 ms,
// complexity 10, bandwidth auto, a jitter buffer of 40 ms.
CallOptions WithDefaults(CallOptions options, InputKind kind);

// The kind of an input. Throws Failure when it is unknown, UsageError for options that do not go
// with it.
InputKind CheckedKind(const InputFile &input, const CallOptions &options);

// Reads the call of an input of this kind; speech audio is encoded. options: with defaults. Throws
// Failure, UsageError, Interrupted.
LoadedCall LoadCall(InputFile &input, InputKind kind, const CallOptions &options);

}  // namespace aiplc::tools

#endif
