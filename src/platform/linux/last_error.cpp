// SPDX-License-Identifier: BSD-2-Clause

#include "src/platform/linux/last_error.h"

#include <cerrno>

#include "src/platform/platform.h"

namespace aiplc::platform {

namespace {

thread_local uint32_t lastError = 0;

}  // namespace

uint32_t LastError() {
    return lastError;
}

void SetLastError(int error) {
    lastError = static_cast<uint32_t>(error);
}

bool Fail(int error) {
    SetLastError(error);
    return false;
}

uint32_t FailWait(int error) {
    SetLastError(error);
    return error == ETIMEDOUT ? kWaitTimeout : kWaitFailed;
}

}  // namespace aiplc::platform
