// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/receive_command.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <system_error>

#include "tools/input/encoding_options.h"
#include "tools/shell/number_check.h"

namespace aiplc::tools {
namespace {

constexpr int32_t kMostDelayMs = 2000;

constexpr const char *kReceiveHelp = R"(
SOURCE is a UDP port (0: any free one), HOST:PORT for one address of this machine, or a
session description (SDP, a file): the first Opus stream of it. RTP of RFC 7587 is taken,
of any payload type unless one is given; what else comes to the port is counted and
passed over. A new sender, payload type or clock is followed. When packets stop, the
call goes on; Ctrl-C ends it, and the output is complete.

The audio of OUT.wav begins with the first packet. On a terminal a line tells how the
call goes; --json-lines writes the same and more once a second.

Examples, in two shells:
  aiplc receive 5004 -o heard.wav
  aiplc send talk.wav 127.0.0.1:5004 --loss 20 --burst 3 --jitter 40
      A call with losses in bursts of 3 packets and up to 40 ms of jitter.
  aiplc receive call.sdp --play
      What a session description announces, on the sound card.
  aiplc receive 5004 -o - --quiet | aplay -f S16_LE -r 48000
  aiplc receive 5004 --jitter-buffer 20..200 --json-lines - --once
      Statistics only, until the sender says goodbye.

Exit code: 0 ended as asked, by Ctrl-C too, 1 failed, 2 wrong usage.)";

bool TakeMs(const char *&at, const char *end, int32_t &value) {
    const auto [rest, error] = std::from_chars(at, end, value);
    at = rest;
    return error == std::errc{} && value >= 0 && value <= kMostDelayMs;
}

}  // namespace

JitterBufferOptions ParseJitterBuffer(const std::string &text) {
    JitterBufferOptions options;
    const char *at = text.data();
    const char *end = at + text.size();
    bool isRight = TakeMs(at, end, options.minDelayMs);
    if (isRight && at == end) {
        options.kind = AIPLC_JITTER_FIXED;
        options.maxDelayMs = options.minDelayMs;
        return options;
    }
    isRight = isRight && text.compare(static_cast<size_t>(at - text.data()), 2, "..") == 0;
    if (isRight) at += 2;
    isRight = isRight && TakeMs(at, end, options.maxDelayMs) && at == end &&
              options.minDelayMs <= options.maxDelayMs;
    if (!isRight)
        throw CLI::ValidationError("'" + text +
                                   "' is no delay; give MIN..MAX or one number, in ms up to 2000, "
                                   "such as 20..200 or 40");
    return options;
}

CLI::App *AddReceive(CLI::App &program, ReceiveOptions &options) {
    CLI::App *app = program.add_subcommand("receive", "Play a call from the network as it comes");
    app->footer(kReceiveHelp);
    app->add_option("SOURCE", options.source, "UDP port, HOST:PORT, or a session description")
        ->required()
        ->type_name("");
    app->add_option("-o,--output", options.output,
                    "WAV; - = samples on stdout, 16 bit of this machine's byte order, mono")
        ->type_name("OUT.wav");
    app->add_option("--play", options.card, "on the sound card, or on this device of aplay -L")
        ->expected(0, 1)
        ->default_str("default")
        ->type_name("[DEVICE]");
    AddRate(*app, options.sampleRate, "of the output, 16 or 48 kHz (48)");
    app->add_option("--duration", options.duration, "end after so much audio")
        ->check(CLI::Range(0.02, 1e7).description(""))
        ->type_name("SECONDS");
    app->add_flag("--once", options.once, "end when the sender says goodbye (RTCP BYE)");
    app->add_option("--json-lines", options.jsonLinesPath,
                    "a line of JSON with every counter once a second; - = stdout")
        ->type_name("FILE");
    AddMessages(*app, options, "no line about the call, no summary");
    AddReceiving(*app, options.receiving, "the Opus decoder");
    app->option_defaults()->group("Network");
    app->add_option_function<std::string>(
           "--jitter-buffer",
           [&options](const std::string &text) { options.jitterBuffer = ParseJitterBuffer(text); },
           "wait before a frame is due, in ms: as the network needs\nfrom MIN to MAX (0..500), or "
           "always MS. Packets are used for 60 ms more")
        ->type_name("MIN..MAX");
    app->add_option("--payload-type", options.payloadType, "of Opus, 0 to 127 (any)")
        ->check(IsPayloadType())
        ->type_name("N");
    app->add_option("--red-payload-type", options.redPayloadType,
                    "of redundant audio (RFC 2198), 0 to 127 (none)")
        ->check(IsPayloadType())
        ->type_name("N");
    app->add_flag("--rtcp-mux", options.rtcpMux, "RTCP on the RTP port (RFC 5761)");
    app->add_flag("--no-rtcp", options.noRtcp, "send no receiver reports");
    return app;
}

}  // namespace aiplc::tools
