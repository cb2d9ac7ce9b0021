// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_ROW_ARITHMETIC_H
#define AIPLC_WORKER_ROW_ARITHMETIC_H

#include "worker/model/network_layout.h"

namespace aiplc::worker {

// Adds (gainRe + i gainIm) * (re + i im).
inline void AddProduct(const Row &gainRe, const Row &gainIm, const Row &re, const Row &im,
                       Row &sumRe, Row &sumIm) {
    for (size_t i = 0; i < kColumns; ++i) {
        sumRe.at[i] += gainRe.at[i] * re.at[i] - gainIm.at[i] * im.at[i];
        sumIm.at[i] += gainRe.at[i] * im.at[i] + gainIm.at[i] * re.at[i];
    }
}

// (1 - share) lower + share upper.
inline Row Between(const Row &lower, const Row &upper, float share) {
    Row between{};
    for (size_t i = 0; i < kColumns; ++i)
        between.at[i] = lower.at[i] + share * (upper.at[i] - lower.at[i]);
    return between;
}

}  // namespace aiplc::worker

#endif
