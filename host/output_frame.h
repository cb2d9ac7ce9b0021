// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_OUTPUT_FRAME_H
#define AIPLC_HOST_OUTPUT_FRAME_H

#include <aiplc/aiplc.h>
#include <aiplc/receiver.h>

#include <cstdint>
#include <span>

namespace aiplc::host {

// One 20 ms frame to play, and what it is made of. samples stays valid until the receiver's next
// Pull: 320 at 16 kHz, 960 at 48 kHz.
struct OutputFrame : AiPlcReceiverFrame {
    OutputFrame() : AiPlcReceiverFrame{} {
        structSize = sizeof(AiPlcReceiverFrame);
        frame = -4;
        packetType = PKT_MUTE;
    }

    std::span<const int16_t> samples;
};

}  // namespace aiplc::host

#endif
