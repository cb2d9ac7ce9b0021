// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CONCEAL_COMMAND_H
#define AIPLC_TOOLS_CONCEAL_COMMAND_H

#include <CLI/App.hpp>

#include "tools/conceal/conceal_options.h"

namespace aiplc::tools {

// Adds `conceal` to the program; parsing fills options, which outlive it.
CLI::App *AddConceal(CLI::App &program, ConcealOptions &options);

}  // namespace aiplc::tools

#endif
