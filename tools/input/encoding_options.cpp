// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/encoding_options.h"

#include <CLI/CLI.hpp>

#include "tools/shell/number_check.h"

namespace aiplc::tools {
namespace {

constexpr int kMaxJitterBufferMs = 10000;

}  // namespace

std::string TakeRate(std::string &text) {
    if (text == "16" || text == "48") text += "000";
    if (text != "16000" && text != "48000")
        throw CLI::ValidationError("'" + text + "' is no rate; give 16 or 48 (kHz)");
    return {};
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
    app.add_option("--red", encoding.redundancy,
                   "redundant audio (RFC 2198): each packet carries the 1 to 4 packets before\n"
                   "it again, beside the --bitrate")
        ->check(CLI::Range(1, 4).description(""))
        ->type_name("DISTANCE");
    app.add_flag("--dtx", encoding.dtx, "send nothing in pauses");
}

void AddCapture(CLI::App &app, StreamChoice &stream, std::optional<int> &jitterBufferMs) {
    app.option_defaults()->group("Captures");
    app.add_option("--ssrc", stream.ssrc, "of the stream, 0x... or decimal")
        ->check(IsWholeNumber("it as 0x and hexadecimal digits, or in decimal"))
        ->type_name("N");
    app.add_option("--payload-type", stream.payloadType, "of the stream, 0 to 127")
        ->check(IsPayloadType())
        ->type_name("N");
    app.add_option("--red-payload-type", stream.redPayloadType,
                   "of redundant audio (RFC 2198), 0 to 127; otherwise told from its packets")
        ->check(IsPayloadType())
        ->type_name("N");
    app.add_option("--jitter-buffer", jitterBufferMs,
                   "ms from the first packet to playing, 0 to 10000 (40)")
        ->check(CLI::Range(0, kMaxJitterBufferMs).description(""))
        ->type_name("MS");
}

}  // namespace aiplc::tools
