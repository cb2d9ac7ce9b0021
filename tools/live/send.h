// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_SEND_H
#define AIPLC_TOOLS_SEND_H

#include "tools/live/send_options.h"

namespace aiplc::tools {

// Sends a call at its own pace. Throws UsageError, Failure.
void Send(const SendOptions &options);

}  // namespace aiplc::tools

#endif
