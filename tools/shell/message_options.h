// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_MESSAGE_OPTIONS_H
#define AIPLC_TOOLS_MESSAGE_OPTIONS_H

#include <CLI/App.hpp>
#include <string>

namespace aiplc::tools {

// How much a command says on standard error.
struct MessageOptions {
    bool quiet = false;
    bool verbose = false;  // the library's log lines
};

// Adds -q and -v to a command. quietHelp: what -q leaves out. Parsing fills options, which outlive
// the command.
void AddMessages(CLI::App &app, MessageOptions &options, const std::string &quietHelp);

}  // namespace aiplc::tools

#endif
