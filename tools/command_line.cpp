// SPDX-License-Identifier: BSD-2-Clause

#include "command_line.h"

#include <opus/opus.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "conceal.h"
#include "failure.h"
#include "model_facts.h"

namespace aiplc::tools {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;
constexpr int kMaxJitterBufferMs = 10000;

constexpr const char *kConcealHelp = R"(
INPUT is recognised by its content; - reads standard input:
  speech audio  WAV, FLAC, Ogg Vorbis, ...; any rate and number of channels. It is
                mixed to mono and encoded with Opus.
  Ogg Opus      its packets are the call.
  bit stream    as opus_demo -e writes it; a packet of length 0 is lost.
  capture       pcap or pcapng with Opus in RTP. Capture times drive the playing: a
                packet that comes later than --jitter-buffer allows is late.

OUT.wav is mono, 16 bit, aligned with INPUT and as long. It appears when it is
complete. The summary goes to standard error, so -o - and --json - can be piped.

Examples:
  aiplc conceal talk.wav -o out.wav --loss 10
      Encode at 24 kbit/s, lose every tenth packet at random, conceal.
  aiplc conceal talk.flac -o out.wav --loss 20 --burst 3 --seed 7 --fec
      Losses in bursts of 3 packets on average, with in-band redundancy.
  aiplc conceal talk.wav -o codec.wav --loss 10 --no-ai
      The same losses, concealed by the codec alone, to compare with.
  aiplc conceal call.pcapng -o out.wav --jitter-buffer 60 --frames out.csv
      What the receiver of a captured call would have heard, frame by frame.
  aiplc conceal call.opus -o out.wav --loss-trace wifi.txt --json report.json
      Lose the packets that the trace says; write every counter.
  sox talk.wav -t wav - | aiplc conceal - -o - --loss 5 | aplay

Exit code: 0 done, 1 failed, 2 wrong usage, 130 interrupted.)";

// "16" and "48" in kHz, or in Hz.
std::string RateInHz(const std::string &text) {
    if (text == "16" || text == "16000") return "16000";
    if (text == "48" || text == "48000") return "48000";
    throw CLI::ValidationError("'" + text + "' is no rate; give 16 or 48 (kHz)");
}

void AddEncoding(CLI::App &app, EncodingOptions &encoding) {
    app.option_defaults()->group("Encoding of speech audio");
    app.add_option("--bitrate", encoding.bitrate, "bit/s, 6000 to 510000 (24000)")
        ->check(CLI::Range(6000, 510000).description(""))
        ->type_name("N");
    app.add_option("--frame-ms", encoding.frameMs, "packet length: 10, 20, 40 or 60 ms (20)")
        ->check(CLI::IsMember({10, 20, 40, 60}).description(""))
        ->type_name("MS");
    app.add_option("--bandwidth", encoding.bandwidth,
                   "at most nb (4 kHz), mb (6), wb (8), swb (12) or fb (20); auto")
        ->check(CLI::IsMember({"auto", "nb", "mb", "wb", "swb", "fb"}).description(""))
        ->type_name("NAME");
    app.add_option("--complexity", encoding.complexity, "0 to 10 (10)")
        ->check(CLI::Range(0, 10).description(""))
        ->type_name("N");
    app.add_flag("--fec", encoding.fec, "in-band redundancy, prepared for the --loss given");
    app.add_flag("--dtx", encoding.dtx, "send nothing in pauses");
}

void AddLoss(CLI::App &app, LossOptions &loss) {
    app.option_defaults()->group("Loss");
    app.add_option("--loss", loss.lossPercent, "percent of packets to lose, 0 to below 100")
        ->type_name("PERCENT");
    app.add_option("--burst", loss.meanBurst,
                   "mean length of a loss in packets, 1 or more (independent losses)")
        ->check(CLI::Range(1.0, 1e6).description(""))
        ->type_name("MEAN");
    app.add_option("--seed", loss.seed, "of the losses; the same seed, the same losses (1)")
        ->type_name("N");
    app.add_option("--loss-trace", loss.tracePath,
                   "file of 0 (received) and 1 (lost), one per packet; repeats")
        ->type_name("FILE");
}

void AddCapture(CLI::App &app, ConcealOptions &options) {
    app.option_defaults()->group("Captures");
    app.add_option("--ssrc", options.stream.ssrc, "of the stream, 0x... or decimal")
        ->type_name("N");
    app.add_option("--payload-type", options.stream.payloadType, "of the stream, 0 to 127")
        ->check(CLI::Range(0, 127).description(""))
        ->type_name("N");
    app.add_option("--jitter-buffer", options.jitterBufferMs,
                   "ms from the first packet to playing, 0 to 10000 (40)")
        ->check(CLI::Range(0, kMaxJitterBufferMs).description(""))
        ->type_name("MS");
}

CLI::App *AddConceal(CLI::App &program, ConcealOptions &options) {
    CLI::App *app =
        program.add_subcommand("conceal", "Play a call with packet loss into a WAV file");
    app->footer(kConcealHelp);
    app->add_option("INPUT", options.input, "the call, or speech to make one of; - = stdin")
        ->required()
        ->type_name("");
    app->add_option("-o,--output", options.output, "- = stdout")->required()->type_name("OUT.wav");
    app->add_option("--rate", options.sampleRate,
                    "of processing and output, 16 or 48 kHz (48 when the input carries more)")
        ->transform(CLI::Validator(
            [](std::string &text) {
                text = RateInHz(text);
                return std::string();
            },
            ""))
        ->type_name("KHZ");
    app->add_flag("--no-ai", options.noAi, "the codec's own concealment only");
    app->add_flag("--require-ai", options.requireAi, "fail when the worker does not start");
    app->add_flag("--keep-delay", options.keepDelay, "leave look-ahead and codec delay in OUT.wav");
    app->add_flag("--realtime", options.realtime, "one frame every 20 ms; count missed ticks");
    app->add_option("--json", options.jsonPath, "report with every counter; - = stdout")
        ->type_name("FILE");
    app->add_option("--frames", options.framesPath, "CSV table, one row per output frame")
        ->type_name("FILE");
    app->add_flag("-q,--quiet", options.quiet, "no summary, no progress bar");
    app->add_flag("-v,--verbose", options.verbose, "the library's log lines on stderr");
    AddLoss(*app, options.loss);
    AddEncoding(*app, options.encoding);
    AddCapture(*app, options);
    return app;
}

void PrintError(const char *message) {
    std::fprintf(stderr, "aiplc: conceal: %s\n", message);
}

int RunConceal(const ConcealOptions &options) {
    try {
        Conceal(options);
        return 0;
    } catch (const UsageError &error) {
        PrintError(error.what());
        return kExitUsage;
    } catch (const Interrupted &) {
        PrintError("interrupted; nothing was written");
        return kExitInterrupted;
    } catch (const std::bad_alloc &) {
        PrintError("not enough memory");
        return kExitFailure;
    } catch (const std::exception &error) {
        PrintError(error.what());
        return kExitFailure;
    }
}

}  // namespace

int RunCommandLine(int argc, char **argv) {
    CLI::App program("Packet-loss concealment for Opus speech", "aiplc");
    program.require_subcommand(1);
    program.footer("\naiplc COMMAND --help explains a command with examples.");
    bool verbose = false;
    program.add_flag("--verbose", verbose, "with --version: the worker's model as well");
    program.set_version_flag("--version", [&verbose] {
        const auto version =
            std::string("aiplc ") + AIPLC_VERSION + ", " + opus_get_version_string();
        return verbose ? version + '\n' + ModelFacts() : version;
    });
    ConcealOptions options;
    CLI::App *conceal = AddConceal(program, options);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) return program.exit(error);  // --help, --version
        const bool inConceal = conceal->parsed() || (argc > 1 && std::string(argv[1]) == "conceal");
        const std::string command = inConceal ? "aiplc conceal" : "aiplc";
        std::fprintf(stderr, "%s: %s; see %s --help\n", inConceal ? "aiplc: conceal" : "aiplc",
                     error.what(), command.c_str());
        return kExitUsage;
    }
    return RunConceal(options);
}

}  // namespace aiplc::tools
