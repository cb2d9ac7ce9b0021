// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_INTERRUPT_H
#define AIPLC_TOOLS_INTERRUPT_H

namespace aiplc::tools {

// From here on SIGINT and SIGTERM ask for a clean end, and a closed pipe is an error of the write.
// A second signal of the kind ends the process at once.
void CatchInterrupts();

// Throws Interrupted once the user has asked for the end.
void ThrowIfInterrupted();

}  // namespace aiplc::tools

#endif
