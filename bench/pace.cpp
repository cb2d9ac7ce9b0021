// SPDX-License-Identifier: BSD-2-Clause

#include "bench/pace.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace aiplc::bench {

namespace {

constexpr int64_t kTickNs = 20'000'000;
constexpr int64_t kSecondNs = 1'000'000'000;
constexpr int64_t kDefaultTicks = 500;
constexpr int64_t kFewestTicks = 80;  // a window of each loss pattern for every round

int64_t ToNanoseconds(const timespec &time) {
    return int64_t{time.tv_sec} * kSecondNs + time.tv_nsec;
}

timespec ToTimespec(int64_t nanoseconds) {
    return {.tv_sec = nanoseconds / kSecondNs, .tv_nsec = nanoseconds % kSecondNs};
}

}  // namespace

int64_t Nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return ToNanoseconds(now);
}

int64_t PacedTicks() {
    const char *wish = std::getenv("AIPLC_BENCH_PACED_FRAMES");
    const int64_t ticks = wish == nullptr ? kDefaultTicks : std::strtoll(wish, nullptr, 10);
    return std::max(ticks, kFewestTicks);
}

Pace::Pace(Rhythm rhythm) : m_paced(rhythm == Rhythm::paced), m_next(ToTimespec(Nanoseconds())) {}

void Pace::Wait() {
    if (!m_paced) return;
    m_next = ToTimespec(std::max(ToNanoseconds(m_next) + kTickNs, Nanoseconds()));
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &m_next, nullptr) == EINTR) {
    }
}

}  // namespace aiplc::bench
