// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/pacer.h"

#include <cerrno>

#include "tools/shell/interrupt.h"

namespace aiplc::tools {
namespace {

constexpr long kTickNs = 20'000'000;
constexpr long kSecondNs = 1'000'000'000;

bool HasPassed(const timespec &moment) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec != moment.tv_sec ? now.tv_sec > moment.tv_sec : now.tv_nsec > moment.tv_nsec;
}

}  // namespace

Pacer::Pacer() {
    clock_gettime(CLOCK_MONOTONIC, &m_deadline);
}

void Pacer::WaitForTick() {
    m_deadline.tv_nsec += kTickNs;
    if (m_deadline.tv_nsec >= kSecondNs) {
        m_deadline.tv_nsec -= kSecondNs;
        ++m_deadline.tv_sec;
    }
    if (HasPassed(m_deadline)) {
        ++m_missed;
        return;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &m_deadline, nullptr) == EINTR) {
        ThrowIfInterrupted();
    }
}

}  // namespace aiplc::tools
