// SPDX-License-Identifier: BSD-2-Clause

#include "tools/conceal/conceal.h"

#include <aiplc/aiplc.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "measure/log_spectral_distance.h"
#include "tools/conceal/frame_table.h"
#include "tools/conceal/wav_output.h"
#include "tools/loss/loss_options.h"
#include "tools/loss/packet_losses.h"
#include "tools/play/call_player.h"
#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/log_lines.h"
#include "tools/shell/output_targets.h"
#include "tools/shell/pacer.h"
#include "tools/shell/progress.h"

namespace aiplc::tools {
namespace {

// OUT.wav is WAV whatever its name; a name that promises something else is refused, and with it the
// input's, which may be a capture.
void CheckOutputName(const std::string &output) {
    static constexpr std::array<const char *, 14> kOthers = {
        ".flac", ".ogg", ".oga", ".opus", ".mp3",  ".m4a",    ".aac",
        ".aiff", ".aif", ".raw", ".gz",   ".pcap", ".pcapng", ".webm"};
    std::string extension = std::filesystem::path(output).extension().string();
    for (char &letter : extension)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    if (std::ranges::count(kOthers, extension) == 0) return;
    throw UsageError("-o " + output + ": the output is WAV; give a name that ends in .wav");
}

// Finds contradictions before any file is opened.
void CheckOptions(const ConcealOptions &options) {
    CheckDistinct(
        {{"-o", options.output}, {"--json", options.jsonPath}, {"--frames", options.framesPath}});
    CheckOutputName(options.output);
    if (!options.receiving.UsesNetwork() && options.requireAi) {
        throw UsageError("--no-ai and --require-ai contradict each other; give one of them");
    }
}

// The outputs that --frames, --json and -o ask for; they appear together or not at all, as far as
// one rename after the other goes.
struct Outputs {
    Outputs(const ConcealOptions &options, const InputFile &input, const CallTimeline &timeline)
        : wav(options.output, input.Descriptor(), timeline.SampleRate(),
              options.keepDelay ? 0 : timeline.Delay(),
              timeline.Samples() + (options.keepDelay ? timeline.Delay() : 0),
              std::pow(10.0, timeline.Call().outputGainQ8 / (20.0 * 256.0))) {
        if (!options.framesPath.empty()) {
            frames = std::make_unique<FrameTable>(options.framesPath, input.Descriptor());
        }
        if (!options.jsonPath.empty()) {
            json = std::make_unique<OutputFile>(options.jsonPath, input.Descriptor());
        }
    }

    WavOutput wav;
    std::unique_ptr<FrameTable> frames;
    std::unique_ptr<OutputFile> json;
};

// One run of a call through the receiver, with its loss-free twin where the distance is asked for.
class Run {
  public:
    Run(const CallTimeline &timeline, const CallTimeline *lossFree, const ConcealOptions &options)
        : m_timeline(timeline),
          m_options(options),
          m_player(timeline, ReceiverFor(options.receiving)) {
        if (lossFree == nullptr) return;
        // The same decoder: what its enhancer does to received speech is no damage.
        AiPlcReceiverOptions reference = ReceiverFor(options.receiving);
        reference.predictor = AIPLC_PREDICTOR_NONE;
        m_reference = std::make_unique<CallPlayer>(*lossFree, reference);
        m_distance = std::make_unique<measure::LogSpectralDistance>(timeline.SampleRate());
    }

    [[nodiscard]] bool PredictorRunning() const { return m_player.Receiver().PredictorRunning(); }

    void Play(Outputs &outputs, ConcealReport &report) {
        const int64_t ticks = m_timeline.Ticks();
        Progress progress(ticks, !m_options.quiet);
        Pacer pacer;
        for (int64_t tick = 0; tick < ticks; ++tick) {
            ThrowIfInterrupted();
            if (m_options.realtime) pacer.WaitForTick();
            Step(tick, outputs, report);
            progress.Show(tick + 1);
        }
        const auto nanoseconds = static_cast<double>(m_player.Spent().count());
        report.receiverSeconds = nanoseconds * 1e-9;
        report.playedSeconds = static_cast<double>(ticks) * 0.02;
        if (m_options.realtime) report.missedTicks = pacer.Missed();
        if (m_distance) report.logSpectralDistanceDb = m_distance->MeanDb();
    }

  private:
    void Step(int64_t tick, Outputs &outputs, ConcealReport &report) {
        const PlayedFrame &frame = m_player.Next();
        outputs.wav.Write(frame.samples);
        const PlayedFrame *reference = m_reference ? &m_reference->Next() : nullptr;
        const int64_t callFrame = tick - kLookAheadFrames;
        // Frames behind the call's last exist only to push it through the filters.
        if (callFrame < 0 || callFrame >= m_timeline.CallFrames()) return;
        if (outputs.frames) {
            const int64_t skipped = m_options.keepDelay ? 0 : m_timeline.Delay();
            const int64_t start = tick * m_timeline.FrameSamples() - skipped;
            outputs.frames->Add(callFrame, static_cast<double>(start) / m_timeline.SampleRate(),
                                frame);
        }
        if (reference != nullptr) {
            m_distance->Add(frame.samples, reference->samples, IsConcealed(frame.Source()));
        }
        if (callFrame == m_timeline.CallFrames() - 1) {
            report.statistics = m_player.Receiver().Statistics();
        }
    }

    const CallTimeline &m_timeline;
    const ConcealOptions &m_options;
    CallPlayer m_player;
    std::unique_ptr<CallPlayer> m_reference;
    std::unique_ptr<measure::LogSpectralDistance> m_distance;
};

void CheckWorker(const ConcealOptions &options, bool running) {
    if (!options.receiving.UsesNetwork() || running) return;
    if (options.requireAi) {
        throw Failure(
            "the worker did not start, and --require-ai asks for it; it belongs in x64/ "
            "beside this program, --verbose tells what went wrong");
    }
    std::fputs(
        "aiplc: conceal: warning: the worker did not start; the codec conceals every loss "
        "(--verbose tells what went wrong)\n",
        stderr);
}

void PrintNotes(const ConcealOptions &options, const LoadedCall &loaded) {
    for (const std::string &warning : loaded.warnings)
        std::fprintf(stderr, "aiplc: conceal: warning: %s\n", warning.c_str());
    if (options.quiet) return;
    for (const std::string &note : loaded.notes)
        std::fprintf(stderr, "aiplc: conceal: note: %s\n", note.c_str());
}

}  // namespace

ConcealReport Conceal(const ConcealOptions &given) {
    CheckOptions(given);
    if (given.verbose) AiplcRegLog(PrintLog);

    const std::unique_ptr<LossModel> model = MakeLossModel(given.loss);
    InputFile input = InputFile::Open(given.input);
    const InputKind kind = CheckedKind(input, given);
    ConcealOptions options = given;
    options.lossExpected = given.loss.lossPercent;
    static_cast<CallOptions &>(options) = WithDefaults(options, kind);
    if (given.loss.lossPercent) options.loss.seed = given.loss.seed.value_or(1);
    const LoadedCall loaded = LoadCall(input, kind, options);
    PrintNotes(options, loaded);
    options.sampleRate = loaded.sampleRate;
    const OpusCall &call = loaded.call;
    ConcealReport report;
    report.inputName = input.Name();
    report.source = loaded.source;
    report.sampleRate = loaded.sampleRate;
    const int jitterBufferMs = options.jitterBufferMs.value_or(0);
    const PacketLosses losses = DrawLosses(call, model.get(), input.Name());
    const std::vector<bool> &lost = losses.lost;
    report.packets = lost.size();
    report.payloadBitrate = PayloadBitrate(call);
    report.packetsMissing = losses.missing;
    report.packetsDropped = losses.dropped;
    const CallTimeline timeline(call, lost, loaded.sampleRate, jitterBufferMs);
    const CallTimeline lossFree(call, std::vector<bool>(lost.size(), false), loaded.sampleRate,
                                jitterBufferMs);
    // A reference exists only when all packets do, on the same frames.
    const bool comparable = report.packetsDropped > 0 && report.packetsMissing == 0 &&
                            !call.hasArrivalTimes && timeline.StartOffset() == 0;
    report.samples = timeline.Samples() + (options.keepDelay ? timeline.Delay() : 0);
    report.delay = timeline.Delay();

    Outputs outputs(options, input, timeline);
    Run run(timeline, comparable ? &lossFree : nullptr, options);
    report.predictorRunning = run.PredictorRunning();
    report.decoder = DecoderFactsAt(ReceiverFor(options.receiving).decoderComplexity);
    CheckWorker(options, report.predictorRunning);
    PrintDecoderNote("conceal", options.receiving);
    run.Play(outputs, report);

    if (outputs.json) outputs.json->Write(ReportJson(options, report));
    ThrowIfInterrupted();
    outputs.wav.Commit();
    if (outputs.frames) outputs.frames->Commit();
    if (outputs.json) outputs.json->Commit();
    if (!options.quiet) std::fputs(ReportSummary(options, report).c_str(), stderr);
    return report;
}

}  // namespace aiplc::tools
