// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RECEIVE_COMMAND_H
#define AIPLC_TOOLS_RECEIVE_COMMAND_H

#include <CLI/App.hpp>

#include "tools/live/receive_options.h"

namespace aiplc::tools {

// Adds `receive` to the program. Parsing fills options, which outlive it.
CLI::App *AddReceive(CLI::App &program, ReceiveOptions &options);

}  // namespace aiplc::tools

#endif
