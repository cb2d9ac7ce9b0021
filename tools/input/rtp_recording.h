// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RTP_RECORDING_H
#define AIPLC_TOOLS_RTP_RECORDING_H

#include <cstdint>
#include <memory>

#include "host/rtp_view.h"
#include "tools/input/input_file.h"
#include "tools/input/link_layer.h"

namespace aiplc::tools {

// An RTP packet as a recording holds it.
struct RecordedPacket {
    host::RtpView rtp;  // points into the recording's buffer, valid until the next packet is read
    int64_t timeNs =
        0;             // of its arrival, 0 or later, from any origin; clocks are set back at times
    bool cut = false;  // the recording holds less of it than was sent
    Endpoint from;
    Endpoint to;
};

// One pass over the RTP packets in a recording of network traffic.
class RtpRecording {
  public:
    virtual ~RtpRecording() = default;

    // False at the end. Throws Failure for a damaged file, Interrupted.
    virtual bool Next(RecordedPacket &packet) = 0;
    // At the end: the file stops within a packet.
    [[nodiscard]] virtual bool StopsEarly() const = 0;
};

// Opens a capture at its beginning. Throws Failure.
std::unique_ptr<RtpRecording> OpenRtpRecording(const InputFile &input);

}  // namespace aiplc::tools

#endif
