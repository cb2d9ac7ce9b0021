// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_ALLOCATIONS_H
#define AIPLC_BENCH_ALLOCATIONS_H

#include <cstdint>
#include <optional>

namespace aiplc::bench {

// Calls of malloc and its relatives by this thread so far, those of the libraries and of operator
// new included; nothing where they cannot be counted.
std::optional<uint64_t> Allocations();

}  // namespace aiplc::bench

#endif
