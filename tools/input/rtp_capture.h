// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RTP_CAPTURE_H
#define AIPLC_TOOLS_RTP_CAPTURE_H

#include <cstddef>
#include <vector>

#include "tools/input/input_file.h"
#include "tools/input/opus_call.h"
#include "tools/input/rtp_streams.h"

namespace aiplc::tools {

struct CapturedCall {
    OpusCall call;
    std::vector<RtpStream> streams;  // all of the capture
    size_t chosen = 0;               // the call's
    bool stopsEarly = false;         // the file ends within a packet
};

// Reads the RTP stream that ChooseStream names. Throws Failure.
CapturedCall ReadCapture(const InputFile &input, const StreamChoice &choice);

}  // namespace aiplc::tools

#endif
