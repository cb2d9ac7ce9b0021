// SPDX-License-Identifier: BSD-2-Clause

#include "command_line.h"
#include "interrupt.h"

int main(int argc, char **argv) {
    aiplc::tools::CatchInterrupts();
    return aiplc::tools::RunCommandLine(argc, argv);
}
