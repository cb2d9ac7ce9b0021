// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_H
#define AIPLC_TOOLS_COMPARE_H

#include <string>
#include <vector>

#include "tools/compare/compare_options.h"

namespace aiplc::tools {

// Runs `aiplc compare`: plays every call under every loss by every method, each in a process of its
// own, writes the reports and the tables. Returns what the gates of --fail-if found, empty when all
// is well; the reports are there in either case. Nothing is written when it throws: Failure,
// UsageError, Interrupted, or std::runtime_error from the host engine. To be called while the
// process has one thread.
std::vector<std::string> Compare(const CompareOptions &options);

}  // namespace aiplc::tools

#endif
