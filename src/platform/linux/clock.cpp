// SPDX-License-Identifier: BSD-2-Clause

#include <cerrno>

#include "src/platform/linux/deadline.h"
#include "src/platform/platform.h"

namespace aiplc::platform {

void Sleep(uint32_t milliseconds) {
    const timespec deadline = DeadlineAfter(milliseconds);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
    }
}

int64_t PerformanceCounter() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * kNanosecondsPerSecond + now.tv_nsec;
}

int64_t PerformanceFrequency() {
    return kNanosecondsPerSecond;
}

}  // namespace aiplc::platform
