// SPDX-License-Identifier: BSD-2-Clause

#include "tools/command_line.h"
#include "tools/shell/interrupt.h"

int main(int argc, char **argv) {
    aiplc::tools::CatchInterrupts();
    return aiplc::tools::RunCommandLine(argc, argv);
}
