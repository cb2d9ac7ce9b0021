// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_COMMAND_H
#define AIPLC_TOOLS_COMPARE_COMMAND_H

#include <CLI/App.hpp>

#include "tools/compare/compare_options.h"

namespace aiplc::tools {

// Adds `compare` to the program; parsing fills options, which outlive it.
CLI::App *AddCompare(CLI::App &program, CompareOptions &options);

}  // namespace aiplc::tools

#endif
