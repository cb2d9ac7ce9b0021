// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CALL_SCORES_H
#define AIPLC_TOOLS_CALL_SCORES_H

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "measure/bootstrap.h"
#include "tools/compare/compare_measure.h"
#include "tools/play/call_recording.h"

namespace aiplc::tools {

// Measures of one gap, concealed by one method.
struct GapTerms {
    std::array<measure::Term, kGapMeasures.size()> inside;
    std::array<measure::Term, kAfterMeasures> after;
    bool operator==(const GapTerms &) const = default;
};

struct GapScores {
    int64_t first = 0;   // frame of the call
    int64_t frames = 0;  // 1 or more
    std::vector<GapTerms> methods;
    bool operator==(const GapScores &) const = default;
};

// Measures of two seconds of a call, concealed by one method.
struct StretchTerms {
    measure::Term intelligibility;
    measure::Term interruptions;  // counted per minute
    std::array<measure::Term, AIPLC_FRAME_SOURCES> shares;
    bool operator==(const StretchTerms &) const = default;
};

struct StretchScores {
    std::vector<StretchTerms> methods;
    bool operator==(const StretchScores &) const = default;
};

// One call under one loss, by every method.
struct CallScores {
    std::vector<GapScores> gaps;
    std::vector<StretchScores> stretches;
    bool operator==(const CallScores &) const = default;
};

// One play of a call beside its reference: what the same decoder plays of the call without losses.
struct ScoredPlay {
    const CallRecording *played = nullptr;
    const CallRecording *lossFree = nullptr;
};

// Measures plays of the same call, each against its own reference. gapsOf: the play whose concealed
// frames are the gaps, and whose reference tells where speech is, so that all plays are measured in
// the same frames. Where the reference has no received audio either, and in the two frames behind,
// nothing is measured.
CallScores ScoreCall(std::span<const ScoredPlay> plays, size_t gapsOf, int sampleRate);

}  // namespace aiplc::tools

#endif
