// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMMAND_LINE_H
#define AIPLC_TOOLS_COMMAND_LINE_H

namespace aiplc::tools {

// Runs the program: parses, does what was asked for, reports errors on standard error as
// "aiplc: COMMAND: FILE: what is wrong; what would be right". Returns the exit code: 0 done, 1
// failed, 2 wrong usage, 3 a gate of --fail-if holds, 130 interrupted.
int RunCommandLine(int argc, char **argv);

}  // namespace aiplc::tools

#endif
