// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_SYSTEM_CALLS_H
#define AIPLC_BENCH_SYSTEM_CALLS_H

#include <cstdint>
#include <functional>
#include <optional>

namespace aiplc::bench {

// Called by the work below before and after each stretch whose system calls count.
void ToggleSystemCallCount();

// Runs the work in a child process under ptrace(2), which needs no privilege, and counts. Nothing
// where the system forbids tracing or is older than Linux 5.3, or when the work fails: it returns
// whether it did what it should.
std::optional<int64_t> CountSystemCalls(const std::function<bool()> &work);

}  // namespace aiplc::bench

#endif
