// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_BIT_STREAM_H
#define AIPLC_TOOLS_BIT_STREAM_H

#include <cstdint>
#include <span>

#include "tools/input/input_file.h"
#include "tools/input/opus_call.h"

namespace aiplc::tools {

// Whether head, the first bytes of a file of fileSize bytes, reads as an opus_demo bit stream: the
// format has no magic number.
bool LooksLikeBitStream(std::span<const uint8_t> head, uint64_t fileSize);

// Reads the bit stream that libopus' opus_demo writes: per packet a big-endian 32-bit length, the
// encoder's final range (32 bits, not used) and the payload; length 0 = lost packet. Throws
// Failure.
OpusCall ReadBitStream(InputFile &input);

}  // namespace aiplc::tools

#endif
