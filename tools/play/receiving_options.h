// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RECEIVING_OPTIONS_H
#define AIPLC_TOOLS_RECEIVING_OPTIONS_H

#include <aiplc/receiver.h>

#include <CLI/App.hpp>
#include <optional>
#include <string>

namespace aiplc::tools {

// How the receiver of a call is set up, alike for all commands.
struct ReceivingOptions {
    AiPlcPredictor predictor = AIPLC_PREDICTOR_WORKER;
    std::optional<int> decoderComplexity{};  // 0..10; the receiver's own default when not given
    bool noSecondLook = false;               // leave single lost frames to the codec

    [[nodiscard]] bool UsesNetwork() const { return predictor != AIPLC_PREDICTOR_NONE; }
    // The predictor's name as --predictor takes it.
    [[nodiscard]] const char *PredictorName() const;
};

// Adds the options to a command, in a group of their own. decoderOf: the decoder that
// --decoder-complexity sets, for its help. Parsing fills options, which outlive the command.
void AddReceiving(CLI::App &app, ReceivingOptions &options, const std::string &decoderOf);

// The receiver's own options where nothing else was asked for.
AiPlcReceiverOptions ReceiverFor(const ReceivingOptions &options);

// Prints to standard error when the libopus at hand does less than --decoder-complexity asks for.
// command: "conceal" or "compare".
void PrintDecoderNote(const char *command, const ReceivingOptions &options);

}  // namespace aiplc::tools

#endif
