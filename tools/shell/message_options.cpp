// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/message_options.h"

namespace aiplc::tools {

void AddMessages(CLI::App &app, MessageOptions &options, const std::string &quietHelp) {
    app.add_flag("-q,--quiet", options.quiet, quietHelp);
    app.add_flag("-v,--verbose", options.verbose, "the library's log lines on stderr");
}

}  // namespace aiplc::tools
