// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_OUTPUT_TARGETS_H
#define AIPLC_TOOLS_OUTPUT_TARGETS_H

#include <string>
#include <utility>
#include <vector>

namespace aiplc::tools {

// Where one option writes to: its name and a path, "-" = standard output, empty = not given.
using OutputTarget = std::pair<std::string, std::string>;

// Throws UsageError when two options write to one place; /dev/null takes any number.
void CheckDistinct(const std::vector<OutputTarget> &targets);

// Throws Failure when a target is one of the files read.
void CheckNoInput(const std::vector<OutputTarget> &targets, const std::vector<std::string> &inputs);

}  // namespace aiplc::tools

#endif
