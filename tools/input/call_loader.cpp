// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/call_loader.h"

#include <opus/opus.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "host/redundant_audio.h"
#include "host/sender.h"
#include "tools/input/bit_stream.h"
#include "tools/input/ogg_opus.h"
#include "tools/input/speech_audio.h"
#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"

namespace aiplc::tools {
namespace {

constexpr int kExpectedLossOfTrace = 10;  // percent: what FEC prepares for when nobody says
constexpr int kMaxExpectedLoss = 100;
// Payload types of calls that are encoded here, from the range for dynamic ones.
constexpr int kOpusType = 111;
constexpr int kRedType = 63;
// Silence behind the audio, samples: it pushes the audio's end through the receiver's filters,
// which delay by 44 + 45 samples at most.
constexpr size_t kFilterTail = 96;
constexpr double kCancelledDb = 12.0;  // beyond what channels with nothing in common lose

void Refuse(bool given, const char *option, const char *wants, const InputFile &input,
            InputKind kind) {
    if (!given) return;
    throw UsageError(std::string(option) + ": only for " + wants + "; " + input.Name() + " is " +
                     InputKindName(kind));
}

void CheckOptionsFit(const CallOptions &options, const InputFile &input, InputKind kind) {
    if (kind != InputKind::speechAudio) {
        const char *wants = "speech audio, which is encoded here";
        const EncodingOptions &encoding = options.encoding;
        Refuse(encoding.bitrate.has_value(), "--bitrate", wants, input, kind);
        Refuse(encoding.frameMs.has_value(), "--frame-ms", wants, input, kind);
        Refuse(encoding.complexity.has_value(), "--complexity", wants, input, kind);
        Refuse(encoding.bandwidth.has_value(), "--bandwidth", wants, input, kind);
        Refuse(encoding.fec, "--fec", wants, input, kind);
        Refuse(encoding.redundancy.has_value(), "--red", wants, input, kind);
        Refuse(encoding.dtx, "--dtx", wants, input, kind);
    }
    if (kind != InputKind::capture) {
        const char *wants = "captures";
        Refuse(options.stream.ssrc.has_value(), "--ssrc", wants, input, kind);
        Refuse(options.stream.payloadType.has_value(), "--payload-type", wants, input, kind);
        Refuse(options.stream.redPayloadType.has_value(), "--red-payload-type", wants, input, kind);
        Refuse(options.jitterBufferMs.has_value(), "--jitter-buffer", wants, input, kind);
    }
}

// Throws Failure for containers that are not read and often hold Opus.
void CheckContainer(const InputFile &input) {
    std::array<uint8_t, 8> block{};
    const std::span<const uint8_t> head = input.Head(block);
    const auto holds = [head](size_t at, const char *magic) {
        return head.size() >= at + 4 && std::memcmp(&head[at], magic, 4) == 0;
    };
    const char *name = nullptr;
    if (holds(0, "\x1A\x45\xDF\xA3")) name = "Matroska (WebM)";
    if (holds(4, "ftyp")) name = "MP4";
    if (name == nullptr) return;
    throw Failure(input.Name(), std::string(name) +
                                    " is not read; take its Opus out first: ffmpeg -i " +
                                    input.Name() + " -vn -c:a copy call.opus");
}

int OpusBandwidth(const std::string &name) {
    if (name == "nb") return OPUS_BANDWIDTH_NARROWBAND;
    if (name == "mb") return OPUS_BANDWIDTH_MEDIUMBAND;
    if (name == "wb") return OPUS_BANDWIDTH_WIDEBAND;
    if (name == "swb") return OPUS_BANDWIDTH_SUPERWIDEBAND;
    if (name == "fb") return OPUS_BANDWIDTH_FULLBAND;
    return 0;
}

int ExpectedLoss(std::optional<double> percent) {
    if (!percent) return kExpectedLossOfTrace;
    return std::clamp(static_cast<int>(std::lround(*percent)), 1, kMaxExpectedLoss);
}

host::SenderOptions SenderOptionsOf(const CallOptions &options, int sampleRate) {
    const EncodingOptions &encoding = options.encoding;
    host::SenderOptions sender;
    sender.sampleRate = static_cast<uint32_t>(sampleRate);
    sender.bitrate = *encoding.bitrate;
    sender.packetMs = *encoding.frameMs;
    sender.complexity = *encoding.complexity;
    sender.maxBandwidth = OpusBandwidth(*encoding.bandwidth);
    sender.redundancy = encoding.redundancy.value_or(0);
    sender.dtx = encoding.dtx;
    sender.fec = encoding.fec;
    sender.expectedLossPercent = encoding.fec ? ExpectedLoss(options.lossExpected) : 0;
    return sender;
}

// The rate that loses nothing of the input, unless the user says otherwise.
int RateOfSpeech(const CallOptions &options, int audioRate) {
    const std::string &bandwidth = *options.encoding.bandwidth;
    const bool superWide = bandwidth == "swb" || bandwidth == "fb";
    if (options.sampleRate == 16000 && superWide) {
        throw UsageError("--bandwidth " + bandwidth +
                         " with --rate 16: 16 kHz carries wideband at most; give --rate 48 or "
                         "--bandwidth wb");
    }
    return options.sampleRate.value_or(audioRate > 24000 || superWide ? 48000 : 16000);
}

void TakePackets(OpusCall &call, std::vector<host::RtpPacket> packets) {
    for (host::RtpPacket &packet : packets) {
        const int64_t arrivalUs = int64_t{packet.timestamp} * 1000 / (kOpusClock / 1000);
        std::vector<uint8_t> redundant;
        if (call.redType >= 0)
            redundant = host::WriteRedundantAudio(packet, static_cast<uint8_t>(call.opusType));
        call.packets.push_back({std::move(packet.payload), packet.sequenceNumber, packet.timestamp,
                                arrivalUs, std::move(redundant)});
    }
}

void NoteMix(const SpeechAudio &audio, const std::string &file, LoadedCall &loaded) {
    if (audio.Channels() == 1) return;
    const std::string channels = std::to_string(audio.Channels()) + " channels";
    if (audio.MixLossDb() < 10.0 * std::log10(audio.Channels()) + kCancelledDb) {
        loaded.notes.push_back(file + ": " + channels + " are mixed to one");
        return;
    }
    loaded.warnings.push_back(file + ": mixed to one, its " + channels +
                              " cancel each other "
                              "(opposite phases); give one of them: sox IN.wav OUT.wav remix 1");
}

LoadedCall Encode(InputFile &input, const CallOptions &options) {
    SpeechAudio audio(input);
    LoadedCall loaded;
    loaded.source.audioRate = audio.SampleRate();
    loaded.source.audioChannels = audio.Channels();
    loaded.sampleRate = RateOfSpeech(options, audio.SampleRate());
    audio.ConvertTo(loaded.sampleRate);

    const host::SenderOptions senderOptions = SenderOptionsOf(options, loaded.sampleRate);
    host::Sender sender(senderOptions);
    OpusCall &call = loaded.call;
    if (senderOptions.redundancy > 0) {
        call.opusType = kOpusType;
        call.redType = kRedType;
    }
    std::array<int16_t, 4800> pcm{};
    size_t got = 0;
    while ((got = audio.Read(pcm)) > 0) {
        ThrowIfInterrupted();
        TakePackets(call, sender.Push({pcm.data(), got}));
    }
    NoteMix(audio, input.Name(), loaded);
    const std::vector<int16_t> tail(static_cast<size_t>(sender.LookAhead()) + kFilterTail, 0);
    TakePackets(call, sender.Push(tail));
    TakePackets(call, sender.Flush());

    const int64_t clockSteps = kOpusClock / loaded.sampleRate;
    const int64_t pcmSamples = audio.TotalSamples() + static_cast<int64_t>(tail.size());
    const int64_t packetSamples = int64_t{senderOptions.packetMs} * loaded.sampleRate / 1000;
    call.span = (pcmSamples + packetSamples - 1) / packetSamples * packetSamples * clockSteps;
    call.delaySamples = sender.LookAhead() * clockSteps;
    call.samples = audio.TotalSamples() * clockSteps;
    return loaded;
}

LoadedCall TakeCapture(CapturedCall captured, const InputFile &input) {
    const std::string &file = input.Name();
    LoadedCall loaded;
    loaded.call = std::move(captured.call);
    const RtpStream &chosen = captured.streams[captured.chosen];
    if (captured.streams.size() > 1) {
        loaded.notes.push_back(file + ": " + std::to_string(captured.streams.size()) +
                               " RTP streams; * is played, " + chosen.Name() +
                               StreamTable(captured.streams, captured.chosen));
    }
    if (captured.stopsEarly || input.StopsEarly()) {
        loaded.warnings.push_back(file +
                                  ": the file is cut short; what is there of the call is played");
    }
    loaded.source.streams = std::move(captured.streams);
    loaded.source.stream = captured.chosen;
    return loaded;
}

LoadedCall ReadPackets(InputFile &input, InputKind kind, const CallOptions &options) {
    LoadedCall loaded;
    if (kind == InputKind::oggOpus) {
        loaded.call = ReadOggOpus(input);
    } else if (kind == InputKind::bitStream) {
        loaded.call = ReadBitStream(input);
    } else {
        loaded = TakeCapture(ReadCapture(input, options.stream), input);
    }
    const bool wide = WidestBandwidth(loaded.call) > OPUS_BANDWIDTH_WIDEBAND;
    loaded.sampleRate = options.sampleRate.value_or(wide ? 48000 : 16000);
    return loaded;
}

}  // namespace

const char *InputKindName(InputKind kind) {
    switch (kind) {
        case InputKind::speechAudio:
            return "speech audio";
        case InputKind::oggOpus:
            return "Ogg Opus";
        case InputKind::bitStream:
            return "an opus_demo bit stream";
        case InputKind::capture:
            return "a capture";
        case InputKind::unknown:
            break;
    }
    return "unknown";
}

InputKind CheckedKind(const InputFile &input, const CallOptions &options) {
    const InputKind kind = input.Kind();
    if (kind == InputKind::unknown) {
        CheckContainer(input);
        throw Failure(input.Name(),
                      "not recognised; give speech audio (WAV, FLAC, Ogg Vorbis, ...), Ogg Opus, "
                      "an opus_demo bit stream, or a pcap, pcapng or rtpdump capture");
    }
    if (input.StopsEarly() && kind != InputKind::capture)
        throw Failure(input.Name(), "the gzip file is cut short; give the whole file");
    CheckOptionsFit(options, input, kind);
    return kind;
}

CallOptions WithDefaults(CallOptions options, InputKind kind) {
    if (kind == InputKind::speechAudio) {
        EncodingOptions &encoding = options.encoding;
        encoding.bitrate = encoding.bitrate.value_or(24000);
        encoding.frameMs = encoding.frameMs.value_or(20);
        encoding.complexity = encoding.complexity.value_or(10);
        encoding.bandwidth = encoding.bandwidth.value_or("auto");
    }
    if (kind == InputKind::capture) options.jitterBufferMs = options.jitterBufferMs.value_or(40);
    return options;
}

LoadedCall LoadCall(InputFile &input, InputKind kind, const CallOptions &options) {
    LoadedCall loaded =
        kind == InputKind::speechAudio ? Encode(input, options) : ReadPackets(input, kind, options);
    loaded.source.kind = kind;
    return loaded;
}

}  // namespace aiplc::tools
