// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_NODE_COUNTER_H
#define AIPLC_NODE_COUNTER_H

#include <cstdint>

namespace aiplc::pipeline {

// The process-wide node counter: 0, 1, ..., 65534, 0, ... Concurrent channels may draw equal
// numbers.
uint16_t NextNodeNumber();

}  // namespace aiplc::pipeline

#endif
