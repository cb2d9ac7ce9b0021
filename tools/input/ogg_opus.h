// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_OGG_OPUS_H
#define AIPLC_TOOLS_OGG_OPUS_H

#include "tools/input/input_file.h"
#include "tools/input/opus_call.h"

namespace aiplc::tools {

// Reads the first Opus stream of an Ogg file (RFC 3533, RFC 7845). Its packets are the call; an
// empty packet counts as lost. Pre-skip and end trimming are in the result. Throws Failure for a
// damaged or truncated file and for more than two channels.
OpusCall ReadOggOpus(InputFile &input);

}  // namespace aiplc::tools

#endif
