// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPLETION_H
#define AIPLC_TOOLS_COMPLETION_H

#include <CLI/App.hpp>
#include <string>

namespace aiplc::tools {

// A shell's script that completes the program's commands and options, made from the program itself:
// "bash", "zsh" or "fish"; empty for any other. Where an option takes a FILE, names of files are
// offered.
std::string CompletionScript(const CLI::App &program, const std::string &shell);

}  // namespace aiplc::tools

#endif
