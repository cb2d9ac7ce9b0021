// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_NUMBER_CHECK_H
#define AIPLC_TOOLS_NUMBER_CHECK_H

#include <CLI/CLI.hpp>
#include <string>

namespace aiplc::tools {

// Checks of an option's text that say what would be right, where the command line's own conversion
// says only that it failed. right: completes the sentence "give ...".
CLI::Validator IsNumber(const std::string &right);
CLI::Validator IsWholeNumber(const std::string &right);  // decimal or 0x..., not negative
// A payload type of RTP: 64 to 95 would be taken for RTCP (RFC 5761, section 4).
CLI::Validator IsPayloadType();

}  // namespace aiplc::tools

#endif
