// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_LOSS_CONDITION_H
#define AIPLC_TOOLS_LOSS_CONDITION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/loss/loss_model.h"

namespace aiplc::tools {

// The losses that a command line asks for: every percentage with every burst length, and traces.
struct LossGrid {
    std::vector<double> percents;
    std::vector<double> meanBursts;  // packets; independent losses when empty
    std::optional<uint64_t> seed;    // 1 when not given
    std::vector<std::string> tracePaths;
};

// One way to lose packets, under which every call is played.
struct LossCondition {
    std::string id;    // "loss5-burst1", "trace1", "own"
    std::string name;  // "5 % in bursts of 1", "wifi.txt", "the call's own losses"
    std::optional<double> percent;
    std::optional<double> meanBurst;
    std::optional<LossTrace> trace;

    // The model for one call; null when only what the call has lost itself is lost. Calls of one
    // run get seeds of their own, so that they do not all lose the same packets.
    [[nodiscard]] std::unique_ptr<LossModel> MakeModel(uint64_t seed) const;
};

// The grid of --loss and --burst, then the traces; the calls' own losses when there is neither.
// Throws UsageError, or Failure for a trace.
std::vector<LossCondition> LossConditions(const LossGrid &grid);

}  // namespace aiplc::tools

#endif
