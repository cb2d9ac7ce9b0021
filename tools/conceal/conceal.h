// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CONCEAL_H
#define AIPLC_TOOLS_CONCEAL_H

#include "tools/conceal/conceal_options.h"
#include "tools/conceal/conceal_report.h"

namespace aiplc::tools {

// Runs `aiplc conceal`: reads the input, plays the call with its losses, writes WAV, table and
// report, prints the summary and warnings to standard error. Nothing is written when it throws:
// Failure, UsageError, Interrupted, or std::runtime_error from the host engine.
ConcealReport Conceal(const ConcealOptions &options);

}  // namespace aiplc::tools

#endif
