// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRAINING_WINDOW_RECORD_H
#define AIPLC_TRAINING_WINDOW_RECORD_H

#include <aiplc/aiplc.h>

#include <array>
#include <cstdint>

#include "worker/classical/candidates.h"

namespace aiplc::training {

using Window = std::array<int16_t, AIPLC_WINDOW_SAMPLES>;

// One request of the library and what it should have been answered, as it lies in the data files
// (little endian, no padding; the same fields in windows.py). Signals are 16 kHz, oldest sample
// first.
struct WindowRecord {
    static constexpr uint16_t kFec = 1;          // the sender gave redundancy
    static constexpr uint16_t kDtx = 2;          // the sender paused
    static constexpr uint16_t kBackground = 4;   // noise or music was mixed in
    static constexpr uint16_t kTruthMixed = 8;   // earlier answers were nearer to the target than
                                                 // the autoregressive ones
    static constexpr uint16_t kSecondLook = 16;  // a single loss that the host asked for itself

    Window window;  // as requested
    Window target;  // the loss-free decode of the same packets
    // The signals that worker/classical/candidates.h makes from the window.
    std::array<worker::Candidates::Signal, worker::Candidates::kCount> candidates;
    uint8_t mode;       // AiPlcInferMode, 1..5
    uint8_t rateKhz;    // of the channel: 16 or 48
    uint8_t received;   // bit i: frame i of the window was received
    uint8_t bandwidth;  // of the packets, at most: 0 narrowband .. 4 fullband
    uint16_t bitrate;   // 100 bit/s
    uint16_t flags;
    uint32_t call;
    uint32_t newestFrame;  // of the window, counted in the call
};
static_assert(sizeof(WindowRecord) == 2 * (2 * AIPLC_WINDOW_SAMPLES + 6 * 1920) + 16);

}  // namespace aiplc::training

#endif
