// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_PACKET_CAPTURE_H
#define AIPLC_TOOLS_PACKET_CAPTURE_H

#include <memory>

#include "tools/input/rtp_recording.h"

namespace aiplc::tools {

// A pcap or pcapng file. Throws Failure.
std::unique_ptr<RtpRecording> OpenPacketCapture(const InputFile &input);

}  // namespace aiplc::tools

#endif
