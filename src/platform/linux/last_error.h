// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_LINUX_LAST_ERROR_H
#define AIPLC_LINUX_LAST_ERROR_H

#include <cstdint>

namespace aiplc::platform {

// Records an errno value as the calling thread's last error.
void SetLastError(int error);

// The same, as the return value of a function that failed.
bool Fail(int error);
uint32_t FailWait(int error);  // kWaitTimeout for ETIMEDOUT, else kWaitFailed

}  // namespace aiplc::platform

#endif
