// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CALL_SOUND_H
#define AIPLC_TOOLS_CALL_SOUND_H

#include <cstdint>
#include <span>
#include <string>

#include "tools/compare/call_scores.h"
#include "tools/play/call_recording.h"

namespace aiplc::tools {

// Bytes of sound that the page may hold, as it is written there.
struct SoundLimits {
    int64_t all = 0;   // of all calls together; 0: no sound is wanted
    int64_t call = 0;  // the equal share of each call
};

// The sound of a call by all methods, as JSON objects whose members go into the call's entry in the
// report: "audio" and, of excerpts, "excerpts".
struct CallSound {
    std::string whole;       // empty: alone larger than all sound may be
    std::string excerpts;    // at most the call's share; empty where the whole call is, too
    int64_t wholeBytes = 0;  // also where `whole` is left empty
};

// Throws Failure, Interrupted.
CallSound EncodeSound(std::span<const CallRecording> recordings, const CallScores &scores,
                      int sampleRate, const SoundLimits &limits);

}  // namespace aiplc::tools

#endif
