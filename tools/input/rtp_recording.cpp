// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/rtp_recording.h"

#include <array>

#include "tools/input/packet_capture.h"
#include "tools/input/rtpdump.h"

namespace aiplc::tools {

std::unique_ptr<RtpRecording> OpenRtpRecording(const InputFile &input) {
    std::array<uint8_t, 64> block{};
    return IsRtpDump(input.Head(block)) ? OpenRtpDump(input) : OpenPacketCapture(input);
}

}  // namespace aiplc::tools
