// SPDX-License-Identifier: BSD-2-Clause

#include <sched.h>
#include <sys/mman.h>

#include "src/platform/platform.h"

namespace aiplc::platform {

// Both need a limit above zero (RLIMIT_MEMLOCK, RLIMIT_RTPRIO) or a privilege. Memory mapped later
// is not locked: under a small limit it could not be had at all.
void AskForRealTime() {
    (void)mlockall(MCL_CURRENT);
    const sched_param lowest{.sched_priority = sched_get_priority_min(SCHED_RR)};
    (void)sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &lowest);
}

}  // namespace aiplc::platform
