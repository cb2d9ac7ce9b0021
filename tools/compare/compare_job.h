// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_JOB_H
#define AIPLC_TOOLS_COMPARE_JOB_H

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "tools/compare/call_scores.h"
#include "tools/compare/call_sound.h"
#include "tools/compare/compare_method.h"
#include "tools/compare/compare_options.h"
#include "tools/loss/loss_condition.h"

namespace aiplc::tools {

// One call under one loss, to be played by every method.
struct CompareJob {
    std::string input;                    // a path
    std::string name;                     // in reports
    std::span<const MethodSetup> setups;  // of CompareMethods
    const LossCondition *loss = nullptr;
    uint64_t seed = 1;
};

// The outcome of a job. The recordings themselves are not part of it.
struct CompareResult {
    CallScores scores;
    std::string entry;  // of the report's "files": a JSON object, without sound
    std::string rows;   // of the CSV file
    CallSound sound;    // no text where no sound is wanted
    std::string notes;  // about the input, each with a line break behind it
    uint64_t requests = 0;
    uint64_t requestsFailed = 0;
};

// Plays, measures and encodes. progress takes the share done. Throws Failure, UsageError,
// Interrupted, std::runtime_error.
CompareResult RunCompareJob(const CompareJob &job, const CompareOptions &options,
                            const SoundLimits &limits, const std::function<void(double)> &progress);

// The result as a file between processes. descriptor: at the place to write to or read from. Throw
// Failure.
void WriteResult(const CompareResult &result, int descriptor);
CompareResult ReadResult(int descriptor);

}  // namespace aiplc::tools

#endif
