// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RECEIVE_H
#define AIPLC_TOOLS_RECEIVE_H

#include "tools/live/receive_options.h"

namespace aiplc::tools {

// Plays a call from the network until it is asked to end. Throws UsageError, Failure, ReaderGone.
void Receive(const ReceiveOptions &options);

}  // namespace aiplc::tools

#endif
