// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/send_command.h"

#include <CLI/CLI.hpp>

#include "tools/input/encoding_options.h"
#include "tools/shell/number_check.h"

namespace aiplc::tools {
namespace {

constexpr const char *kSendHelp = R"(
INPUT is what aiplc conceal takes: speech audio, which is encoded with Opus, Ogg Opus, a
bit stream or a capture, whose own losses and arrival times are kept. It is sent as RTP
(RFC 7587) at the pace of a call, with sender reports to the next port (RTCP).

Examples:
  aiplc send talk.wav 127.0.0.1:5004
  aiplc send talk.wav [::1]:5004 --loss 20 --burst 3 --jitter 40 --seed 7
      Losses in bursts of 3 packets, up to 40 ms of jitter; the same in each run.
  aiplc send talk.flac 192.0.2.7:5004 --loop --fec --loss 5 --dtx
      Again and again until Ctrl-C, with in-band redundancy and pauses.
  aiplc send talk.wav 127.0.0.1:5004 --loss 20 --burst 2 --red 3
      Each packet carries copies of the three before it: aiplc receive 5004 --red-payload-type 63
  aiplc send talk.wav 127.0.0.1:5004 --sdp call.sdp
  ffplay -protocol_whitelist file,udp,rtp call.sdp
      A session description, for programs that need one.

Exit code: 0 sent, or ended by Ctrl-C, 1 failed, 2 wrong usage.)";

void AddShare(CLI::App &app, const char *name, double &percent, const char *help) {
    app.add_option(name, percent, help)
        ->check(CLI::Range(0.0, 100.0).description(""))
        ->type_name("PERCENT");
}

}  // namespace

CLI::App *AddSend(CLI::App &program, SendOptions &options) {
    CLI::App *app = program.add_subcommand("send", "Send a call over the network, with losses");
    app->footer(kSendHelp);
    app->add_option("INPUT", options.input, "the call, or speech to make one of; - = stdin")
        ->required()
        ->type_name("");
    app->add_option("DESTINATION", options.destination, "HOST:PORT of the receiver")
        ->required()
        ->type_name("");
    app->add_option("--payload-type", options.payloadType, "of Opus, 0 to 127 (111)")
        ->check(IsPayloadType())
        ->type_name("N");
    app->add_option("--red-payload-type", options.redPayloadType,
                    "of redundant audio, which --red makes, 0 to 127 (63)")
        ->check(IsPayloadType())
        ->type_name("N");
    app->add_option("--ssrc", options.ssrc, "of the stream (random)")
        ->check(IsWholeNumber("it as 0x and hexadecimal digits, or in decimal"))
        ->type_name("N");
    app->add_option("--sdp", options.sdpPath, "write a session description of the stream")
        ->type_name("FILE");
    app->add_flag("--loop", options.loop, "begin again at the end, until Ctrl-C");
    app->add_option("--duration", options.duration, "end after so long")
        ->check(CLI::Range(0.02, 1e7).description(""))
        ->type_name("SECONDS");
    AddMessages(*app, options, "no summary");
    AddLoss(*app, options.loss);
    app->option_defaults()->group("Network");
    app->add_option("--jitter", options.disturbance.jitterMs,
                    "delay each packet by 0 to so much, in order")
        ->check(CLI::Range(0.0, 10000.0).description(""))
        ->type_name("MS");
    AddShare(*app, "--reorder", options.disturbance.reorderPercent,
             "of packets that arrive behind the next one");
    AddShare(*app, "--duplicate", options.disturbance.duplicatePercent,
             "of packets that arrive twice");
    AddEncoding(*app, options.encoding);
    return app;
}

}  // namespace aiplc::tools
