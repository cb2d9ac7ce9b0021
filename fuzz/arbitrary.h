// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_FUZZ_ARBITRARY_H
#define AIPLC_FUZZ_ARBITRARY_H

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <span>

namespace aiplc::fuzz {

// A condition that must hold for every input.
inline void Require(bool holds) {
    if (!holds) std::abort();
}

// Audio in runs of silence, extremes or noise; two bytes of input decide the whole of it, or a run.
inline void FillAudio(FuzzedDataProvider &data, std::span<int16_t> audio) {
    uint32_t noise = 1;
    while (!audio.empty()) {
        const auto kind = data.ConsumeIntegralInRange<int>(0, 7);
        const int level = kind == 0 ? 0 : 257 * data.ConsumeIntegral<int8_t>();
        const bool isRun = kind >= 4;
        const auto length =
            isRun ? data.ConsumeIntegralInRange<size_t>(1, audio.size()) : audio.size();
        for (int16_t &sample : audio.first(length)) {
            noise = noise * 1664525U + 1013904223U;
            sample = static_cast<int16_t>(level);
            if (kind % 4 == 2 && (noise & 0x10000U) != 0) sample = static_cast<int16_t>(~level);
            if (kind % 4 == 3) sample = static_cast<int16_t>(level ^ static_cast<int>(noise >> 18));
        }
        audio = audio.subspan(length);
    }
}

}  // namespace aiplc::fuzz

#endif
