// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_ENCODING_OPTIONS_H
#define AIPLC_TOOLS_ENCODING_OPTIONS_H

#include <CLI/App.hpp>
#include <optional>
#include <string>

#include "tools/input/call_options.h"

namespace aiplc::tools {

// The options that say how an input becomes a call, alike for all commands.
void AddEncoding(CLI::App &app, EncodingOptions &encoding);
void AddCapture(CLI::App &app, StreamChoice &stream, std::optional<int> &jitterBufferMs);

// Makes Hz of "16" and "48" in kHz, or in Hz. Throws CLI::ValidationError for other rates.
std::string TakeRate(std::string &text);

}  // namespace aiplc::tools

#endif
