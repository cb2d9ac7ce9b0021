// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_FLAC_AUDIO_H
#define AIPLC_TOOLS_FLAC_AUDIO_H

#include <cstdint>
#include <span>
#include <string>

namespace aiplc::tools {

// Mono 16-bit sound as a FLAC file within a "data:" URL, as web pages take it. Throws Failure.
std::string FlacDataUrl(std::span<const int16_t> samples, int sampleRate);

// RFC 4648, section 4, with padding.
std::string Base64(std::span<const uint8_t> bytes);

}  // namespace aiplc::tools

#endif
