// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_WORKER_ALLOCATIONS_H
#define AIPLC_TESTS_WORKER_ALLOCATIONS_H

#include <cstddef>

namespace aiplc {

extern size_t allocations;  // made by this program so far

}  // namespace aiplc

#endif
