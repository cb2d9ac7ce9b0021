// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_LINUX_EVENT_H
#define AIPLC_LINUX_EVENT_H

#include "src/platform/linux/named_object.h"

namespace aiplc::platform {

// Wait for an event.
uint32_t WaitEvent(NamedObject &event, uint32_t timeoutMs);

}  // namespace aiplc::platform

#endif
