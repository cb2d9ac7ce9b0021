// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/compare_command.h"

#include <CLI/CLI.hpp>

#include "tools/input/encoding_options.h"
#include "tools/loss/loss_options.h"
#include "tools/play/receiving_options.h"

namespace aiplc::tools {
namespace {

constexpr int kMaxJobs = 1024;

constexpr const char *kCompareHelp = R"(
Plays the same calls with the same losses by every method and measures each against the
call without losses:
  silence   nothing in place of lost frames
  codec     the concealment of the Opus decoder, without a network
  neural    its concealment with a network, where the libopus at hand has one
  enhanced  the same, and received speech is enhanced, where it has an enhancer
  aiplc     this library with its worker
  ideal     no loss
A method that enhances received speech is measured against the call without losses that
its own decoder plays, so that the enhancer's changes do not count as damage.
FILE is what aiplc conceal takes, but no pipe. --loss and --burst span a grid; without
losses given, captures and bit streams keep their own. The first packet of a call always
arrives. Tables go to standard output unless a report does; docs/measures.md defines what
they hold.

A gate of --fail-if compares method.measure, method.kind.measure or a number with another;
measures: lsd mcd estoi joinLevel joinPitch click interruptions share.SOURCE; kinds: gap1
gap2-3 gap4-6 gap7+ after call.

Examples:
  aiplc compare talk.wav --loss 10 --burst 2
      One loss, with figures by kind of gap.
  aiplc compare *.flac --loss 5,10,20,30 --burst 1,2,4 --html report.html
      Twelve losses; a page to look at and listen to.
  aiplc compare call.pcapng --jitter-buffer 60 --csv figures.csv
      What late and missing packets cost; what was never captured has no reference.
  aiplc compare talk.wav --loss-trace wifi.txt --loss-trace lte.txt --json report.json -q
  aiplc compare talk.wav --loss 20 --burst 2 --fail-if 'aiplc.lsd > codec.lsd'

Exit code: 0 done, 1 failed, 2 wrong usage, 3 a gate of --fail-if holds (reports are
written), 130 interrupted.)";

void AddReports(CLI::App &app, CompareOptions &options) {
    app.option_defaults()->group("Reports");
    app.add_flag("--kinds", options.showKinds, "figures by kind of gap in all tables");
    app.add_option("--json", options.jsonPath, "all figures; - = stdout")->type_name("FILE");
    app.add_option("--csv", options.csvPath, "all figures, down to every gap; - = stdout")
        ->type_name("FILE");
    app.add_option("--html", options.htmlPath, "a page with figures and sound; - = stdout")
        ->type_name("FILE");
    app.add_option("--audio-limit", options.audioLimitMb,
                   "MB of sound in the page, 0 to 2000 (40); calls that do not fit are cut to "
                   "excerpts and named")
        ->check(CLI::Range(0.0, kMaxAudioLimitMb).description(""))
        ->type_name("MB");
    app.add_option("--fail-if", options.failGates,
                   "exit code 3 when this holds at any loss; may be repeated")
        ->allow_extra_args(false)
        ->type_name("GATE");
}

}  // namespace

CLI::App *AddCompare(CLI::App &program, CompareOptions &options) {
    CLI::App *app =
        program.add_subcommand("compare", "Measure methods of concealment side by side");
    app->footer(kCompareHelp);
    app->add_option("FILE", options.inputs, "calls, or speech to make some of")
        ->required()
        ->type_name("");
    AddRate(*app, options.sampleRate, "of processing and sound, 16 or 48 kHz (16)");
    app->add_option("-j,--jobs", options.jobs, "calls played at a time (one per processor)")
        ->check(CLI::Range(1, kMaxJobs).description(""))
        ->type_name("N");
    AddMessages(*app, options, "no progress bar, no warnings");
    AddLoss(*app, options.losses);
    AddReports(*app, options);
    AddReceiving(*app, options.receiving, "the decoder of aiplc and, from 6 on, of enhanced");
    AddEncoding(*app, options.encoding);
    AddCapture(*app, options.stream, options.jitterBufferMs);
    return app;
}

}  // namespace aiplc::tools
