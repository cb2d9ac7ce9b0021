// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_SEND_COMMAND_H
#define AIPLC_TOOLS_SEND_COMMAND_H

#include <CLI/App.hpp>

#include "tools/live/send_options.h"

namespace aiplc::tools {

// Adds `send` to the program. Parsing fills options, which outlive it.
CLI::App *AddSend(CLI::App &program, SendOptions &options);

}  // namespace aiplc::tools

#endif
