// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_LINUX_DEADLINE_H
#define AIPLC_LINUX_DEADLINE_H

#include <cstdint>
#include <ctime>

namespace aiplc::platform {

inline constexpr long kNanosecondsPerSecond = 1'000'000'000;

// The point of CLOCK_MONOTONIC that lies so many milliseconds ahead.
inline timespec DeadlineAfter(uint32_t milliseconds) {
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(milliseconds / 1000);
    deadline.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (deadline.tv_nsec >= kNanosecondsPerSecond) {
        deadline.tv_nsec -= kNanosecondsPerSecond;
        ++deadline.tv_sec;
    }
    return deadline;
}

// Whether that point is still to come.
inline bool IsAhead(const timespec &deadline) {
    const timespec now = DeadlineAfter(0);
    return now.tv_sec < deadline.tv_sec ||
           (now.tv_sec == deadline.tv_sec && now.tv_nsec < deadline.tv_nsec);
}

}  // namespace aiplc::platform

#endif
