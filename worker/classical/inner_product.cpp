// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/inner_product.h"

namespace aiplc::worker {

AIPLC_WIDER float InnerProduct(const float *a, const float *b, size_t count) noexcept {
    constexpr size_t kLanes = Lanes().size();
    Lanes sum{};
    size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (size_t lane = 0; lane < kLanes; ++lane)
            sum[lane] += a[i + lane] * b[i + lane];
    }
    for (size_t lane = 0; i < count; ++i, ++lane)
        sum[lane] += a[i] * b[i];
    return Sum(sum);
}

}  // namespace aiplc::worker
