// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_LOSS_OPTIONS_H
#define AIPLC_TOOLS_LOSS_OPTIONS_H

#include <CLI/App.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "tools/loss/loss_condition.h"

namespace aiplc::tools {

// The packets that one call loses beyond those that the input has lost already.
struct LossOptions {
    std::optional<double> lossPercent;
    std::optional<double> meanBurst;  // packets; independent losses when not set
    std::optional<uint64_t> seed;
    std::optional<std::string> tracePath;
};

// Adds --loss, --burst, --seed and --loss-trace to a command, in a group of their own: each with
// one value for LossOptions, with any number of them but the seed for LossGrid. Parsing fills the
// struct, which outlives the command.
void AddLoss(CLI::App &app, LossOptions &loss);
void AddLoss(CLI::App &app, LossGrid &grid);

// The model of what the options ask for; null: nothing is lost. Throws UsageError for losses that
// contradict each other, Failure for a trace.
std::unique_ptr<LossModel> MakeLossModel(const LossOptions &loss);

}  // namespace aiplc::tools

#endif
