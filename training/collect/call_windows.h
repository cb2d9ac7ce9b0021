// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRAINING_CALL_WINDOWS_H
#define AIPLC_TRAINING_CALL_WINDOWS_H

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "host/output_frame.h"
#include "host/sender.h"
#include "training/collect/window_record.h"

namespace aiplc::training {

// A call to play: what its sender does, which packets arrive, the source of predictions.
struct CallSetup {
    // Answers a request in the worker's place: everything in the record is set but received. The
    // answer holds the autoregressive one.
    using Answer = std::function<void(const WindowRecord &request, Window &answer)>;

    host::SenderOptions sender;
    uint32_t outputRate = 16000;  // of the receiver: 16000 or 48000
    int decoderComplexity = 10;   // of the receiver, 0..10; the target is decoded with the same
    bool secondLook = true;       // the receiver asks for single losses too
    std::vector<bool> lost;       // by packet; packets beyond its end arrive
    Answer answer;                // may be empty: the autoregressive answer
    bool refuse = false;          // no request is answered: the codec conceals
    WindowRecord facts{};         // copied into every record: bitrate, bandwidth, flags, call
};

struct CallResult {
    std::vector<WindowRecord> windows;
    std::vector<int16_t> output;            // at outputRate, from frame 0 on
    std::vector<AiPlcFrameSource> sources;  // of its frames
    uint64_t ambiguous = 0;  // requests left out because silence hid which frames were lost
};

// Encodes the call, plays it through the reference host and collects every window requested.
CallResult CollectWindows(const CallSetup &setup, std::span<const int16_t> pcm);

}  // namespace aiplc::training

#endif
