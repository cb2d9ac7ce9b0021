// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RTPDUMP_H
#define AIPLC_TOOLS_RTPDUMP_H

#include <cstdint>
#include <memory>
#include <span>

#include "tools/input/rtp_recording.h"

namespace aiplc::tools {

// Whether head, the first bytes of a file, begins an rtpdump file: a first line
// "#!rtpplay1.0 ADDRESS/PORT", then per packet its length, its length as RTP (0: RTCP) and the
// milliseconds since the start, all big-endian. Wireshark and the rtptools write it.
bool IsRtpDump(std::span<const uint8_t> head);

std::unique_ptr<RtpRecording> OpenRtpDump(const InputFile &input);

}  // namespace aiplc::tools

#endif
