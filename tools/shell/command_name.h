// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMMAND_NAME_H
#define AIPLC_TOOLS_COMMAND_NAME_H

#include <string>
#include <vector>

namespace aiplc::tools {

// The message for a word that is not a command: it names the command that was meant,
// or how to use the file of that name.
std::string UnknownCommand(const std::string &word, const std::vector<std::string> &commands);

}  // namespace aiplc::tools

#endif
