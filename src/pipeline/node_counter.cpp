// SPDX-License-Identifier: BSD-2-Clause

#include "src/pipeline/node_counter.h"

#include <atomic>

namespace {

constexpr uint16_t kNodeNumbers = 65535;

std::atomic<uint16_t> nodeCounter{0};

}  // namespace

uint16_t aiplc::pipeline::NextNodeNumber() {
    const uint16_t number = nodeCounter.load(std::memory_order_relaxed);
    nodeCounter.store(static_cast<uint16_t>((number + 1) % kNodeNumbers),
                      std::memory_order_relaxed);
    return number;
}
