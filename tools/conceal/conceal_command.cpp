// SPDX-License-Identifier: BSD-2-Clause

#include "tools/conceal/conceal_command.h"

#include <CLI/CLI.hpp>

#include "tools/input/encoding_options.h"
#include "tools/loss/loss_options.h"
#include "tools/play/receiving_options.h"

namespace aiplc::tools {
namespace {

constexpr const char *kConcealHelp = R"(
INPUT is recognised by its content; - reads standard input:
  speech audio  WAV, FLAC, Ogg Vorbis, ...; any rate and number of channels. It is
                mixed to mono and encoded with Opus.
  Ogg Opus      its packets are the call.
  bit stream    as opus_demo -e writes it; a packet of length 0 is lost.
  capture       pcap, pcapng or rtpdump with Opus in RTP, not encrypted, redundant audio included.
                Capture times drive the playing: a packet that comes later than --jitter-buffer
                allows is late.
                Of several streams the one with most Opus packets is played, unless --ssrc
                or --payload-type choose another; they are listed. A file that is cut
                short is played to its end.
A file compressed with gzip is unpacked first.

OUT.wav is mono, 16 bit, aligned with INPUT and as long. It appears when it is
complete. The summary goes to standard error, so -o - and --json - can be piped.

Examples:
  aiplc conceal talk.wav -o out.wav --loss 10
      Encode at 24 kbit/s, lose every tenth packet at random, conceal.
  aiplc conceal talk.flac -o out.wav --loss 20 --burst 3 --seed 7 --fec
      Losses in bursts of 3 packets on average, with in-band redundancy.
  aiplc conceal talk.wav -o out.wav --loss 20 --burst 2 --red 3
      Each packet repeats the three before it: only longer bursts are concealed.
  aiplc conceal talk.wav -o codec.wav --loss 10 --no-ai
      The same losses, concealed by the codec alone, to compare with.
  aiplc conceal call.pcapng -o out.wav --jitter-buffer 60 --frames out.csv
      What the receiver of a captured call would have heard, frame by frame.
  aiplc conceal call.opus -o out.wav --loss-trace wifi.txt --json report.json
      Lose the packets that the trace says; write every counter.
  sox talk.wav -t wav - | aiplc conceal - -o - --loss 5 | aplay

Exit code: 0 done, 1 failed, 2 wrong usage, 130 interrupted.)";

}  // namespace

CLI::App *AddConceal(CLI::App &program, ConcealOptions &options) {
    CLI::App *app =
        program.add_subcommand("conceal", "Play a call with packet loss into a WAV file");
    app->footer(kConcealHelp);
    app->add_option("INPUT", options.input, "the call, or speech to make one of; - = stdin")
        ->required()
        ->type_name("");
    app->add_option("-o,--output", options.output, "- = stdout")->required()->type_name("OUT.wav");
    AddRate(*app, options.sampleRate,
            "of processing and output, 16 or 48 kHz (48 when the input carries more)");
    app->add_flag_callback(
        "--no-ai", [&options] { options.receiving.predictor = AIPLC_PREDICTOR_NONE; },
        "the codec's own concealment only: --predictor none");
    app->add_flag("--require-ai", options.requireAi, "fail when the worker does not start");
    app->add_flag("--keep-delay", options.keepDelay, "leave look-ahead and codec delay in OUT.wav");
    app->add_flag("--realtime", options.realtime, "one frame every 20 ms; count missed ticks");
    app->add_option("--json", options.jsonPath, "report with every counter; - = stdout")
        ->type_name("FILE");
    app->add_option("--frames", options.framesPath, "CSV table, one row per output frame")
        ->type_name("FILE");
    AddMessages(*app, options, "no summary, no progress bar");
    AddLoss(*app, options.loss);
    AddReceiving(*app, options.receiving, "the Opus decoder");
    AddEncoding(*app, options.encoding);
    AddCapture(*app, options.stream, options.jitterBufferMs);
    return app;
}

}  // namespace aiplc::tools
