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

// Adds --rate. rate: int, or std::optional<int> where the input can decide; in Hz, 16000 or 48000.
template <typename Rate>
void AddRate(CLI::App &app, Rate &rate, const std::string &help) {
    app.add_option("--rate", rate, help)->transform(CLI::Validator(TakeRate, ""))->type_name("KHZ");
}

}  // namespace aiplc::tools

#endif
