// SPDX-License-Identifier: BSD-2-Clause

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "command_line.h"
#include "interrupt.h"

int main(int argc, char **argv) {
    // A namespace of its own: every run has its own worker, and runs at the same time never meet.
    const std::string space = "aiplc-" + std::to_string(getpid());
    setenv("AIPLC_NAMESPACE", space.c_str(), 0);
    aiplc::tools::CatchInterrupts();
    return aiplc::tools::RunCommandLine(argc, argv);
}
