// SPDX-License-Identifier: BSD-2-Clause

#include "tools/play/receiving_options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <charconv>
#include <cstdio>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/play/decoder_facts.h"
#include "tools/play/receiver_handle.h"

namespace aiplc::tools {
namespace {

constexpr std::array<std::pair<const char *, AiPlcPredictor>, 3> kPredictors = {{
    {"worker", AIPLC_PREDICTOR_WORKER},
    {"in-process", AIPLC_PREDICTOR_IN_PROCESS},
    {"none", AIPLC_PREDICTOR_NONE},
}};

// Throws CLI::ValidationError for anything but a complexity.
std::string CheckComplexity(const std::string &text) {
    int complexity = -1;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, complexity);
    if (error != std::errc{} || rest != end || complexity < 0 || complexity > kMaxComplexity) {
        throw CLI::ValidationError("'" + text + "' is no decoder complexity; give a whole number " +
                                   "from 0 to " + std::to_string(kMaxComplexity));
    }
    return {};
}

}  // namespace

void AddReceiving(CLI::App &app, ReceivingOptions &options, const std::string &decoderOf) {
    const int usual = DefaultReceiver().decoderComplexity;
    app.option_defaults()->group("Receiving");
    app.add_option_function<std::string>(
           "--predictor",
           [&options](const std::string &name) {
               for (const auto &[known, value] : kPredictors) {
                   if (name == known) options.predictor = value;
               }
           },
           std::string("who fills lost frames (") + options.PredictorName() +
               "): worker, a process\nof its own with a time limit, as in a live call; in-process, "
               "without\nlimits, so that the load of the machine changes nothing; none, the codec")
        ->check(
            CLI::IsMember(std::vector<std::string>{"worker", "in-process", "none"}).description(""))
        ->type_name("NAME");
    app.add_option("--decoder-complexity", options.decoderComplexity,
                   "0 to 10 (" + std::to_string(usual) + "), of " + decoderOf +
                       ".\nNeeds libopus 1.5 or later: up to 4 no network, from 5 on one conceals\n"
                       "losses, from 6 on another enhances received wideband speech, from 7 on\n"
                       "more strongly")
        ->check(CLI::Validator(CheckComplexity, ""))
        ->type_name("N");
    app.add_flag("--no-second-look", options.noSecondLook,
                 "leave single lost frames to the codec instead of asking the worker");
}

const char *ReceivingOptions::PredictorName() const {
    for (const auto &[name, value] : kPredictors) {
        if (value == predictor) return name;
    }
    return "unknown";
}

AiPlcReceiverOptions ReceiverFor(const ReceivingOptions &options) {
    AiPlcReceiverOptions receiver = DefaultReceiver();
    receiver.predictor = options.predictor;
    receiver.decoderComplexity = options.decoderComplexity.value_or(receiver.decoderComplexity);
    if (options.noSecondLook) receiver.useSecondLook = 0;
    return receiver;
}

void PrintDecoderNote(const char *command, const ReceivingOptions &options) {
    if (!options.decoderComplexity) return;
    const int complexity = *options.decoderComplexity;
    const std::string note = DecoderNote(complexity, DecoderFactsAt(complexity));
    if (!note.empty()) std::fprintf(stderr, "aiplc: %s: note: %s\n", command, note.c_str());
}

}  // namespace aiplc::tools
