// SPDX-License-Identifier: BSD-2-Clause

#include "compare_job.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "call_loader.h"
#include "call_recording.h"
#include "compare_figures.h"
#include "compare_format.h"
#include "compare_method.h"
#include "failure.h"
#include "flac_audio.h"
#include "interrupt.h"
#include "packet_losses.h"

namespace aiplc::tools {
namespace {

constexpr int64_t kMaxSeconds = 3600;
constexpr int kDefaultJitterBufferMs = 40;
constexpr int kPlays = 3;  // of one call by one method, at most
// How long the parts of a job take, roughly: the worker's answers most of it.
constexpr double kPlayCost = 1.0;
constexpr double kWorkerCost = 10.0;
constexpr double kScoreCost = 3.0;

// The command line as `aiplc conceal` would have it for this call.
ConcealOptions LoadOptions(const CompareJob &job, const CompareOptions &options) {
    ConcealOptions load;
    load.input = job.input;
    load.encoding = options.encoding;
    load.stream = options.stream;
    load.jitterBufferMs = options.jitterBufferMs;
    load.sampleRate = options.sampleRate;
    load.loss.lossPercent = job.loss->percent;
    load.loss.meanBurst = job.loss->meanBurst;
    return load;
}

LoadedCall Load(const CompareJob &job, const CompareOptions &options) {
    InputFile input = InputFile::Open(job.input);
    const ConcealOptions load = LoadOptions(job, options);
    const InputKind kind = CheckedKind(input, load);
    LoadedCall loaded = LoadCall(input, kind, WithDefaults(load, kind));
    if (loaded.call.span > kMaxSeconds * kOpusClock)
        throw Failure(job.input, "longer than an hour; compare pieces of it");
    return loaded;
}

std::vector<bool> LostPackets(const CompareJob &job, const OpusCall &call) {
    const std::unique_ptr<LossModel> model = job.loss->MakeModel(job.seed);
    std::vector<bool> lost = DrawLosses(call, model.get(), job.input).lost;
    // The first packet to come tells the receiver where the call begins, and the reference with it.
    for (size_t i = 0; i < lost.size(); ++i) {
        if (call.packets[i].payload.empty()) continue;
        lost[i] = false;
        break;
    }
    return lost;
}

// Plays one call by all methods.
class CallPlayers {
  public:
    CallPlayers(const CompareJob &job, const LoadedCall &loaded, int jitterBufferMs,
                const std::function<void(double)> &progress)
        : m_job(job),
          m_progress(progress),
          m_lost(LostPackets(job, loaded.call)),
          m_steady(loaded.call.hasArrivalTimes ? WithoutJitter(loaded.call, m_lost, jitterBufferMs)
                                               : loaded.call),
          m_lossy(loaded.call, m_lost, loaded.sampleRate, jitterBufferMs),
          m_lossFree(m_steady, std::vector<bool>(m_steady.packets.size(), false), loaded.sampleRate,
                     jitterBufferMs) {}

    std::vector<CallRecording> Record() {
        std::vector<CallRecording> recordings;
        double total = kScoreCost;
        for (const CompareMethod &method : CompareMethods())
            total += Cost(method);
        for (const CompareMethod &method : CompareMethods()) {
            const bool ideal = method.id == CompareMethod::Id::ideal;
            recordings.push_back(Play(method, ideal ? m_lossFree : m_lossy, total));
            m_spent += Cost(method);
            if (method.id == CompareMethod::Id::silence) NameSilence(recordings.back());
            Check(recordings.front(), recordings.back());
        }
        return recordings;
    }

  private:
    static double Cost(const CompareMethod &method) {
        return method.receiver.useWorker ? kWorkerCost : kPlayCost;
    }

    // Late answers say how busy this machine is, nothing about a method: such a play is repeated,
    // and the one with the fewest counts.
    CallRecording Play(const CompareMethod &method, const CallTimeline &timeline, double total) {
        const auto frames = static_cast<double>(std::max<int64_t>(timeline.CallFrames(), 1));
        std::optional<CallRecording> best;
        for (int play = 0; play < kPlays; ++play) {
            CallRecording recording = RecordCall(timeline, method.receiver, [&](int64_t done) {
                const double share = static_cast<double>(done) / frames;
                if (play == 0) m_progress((m_spent + Cost(method) * share) / total);
            });
            if (!best || recording.requestsFailed < best->requestsFailed)
                best = std::move(recording);
            if (best->requestsFailed == 0) break;
        }
        return std::move(*best);
    }

    // What the receiver takes for the codec's concealment is silence here.
    static void NameSilence(CallRecording &recording) {
        std::replace(recording.sources.begin(), recording.sources.end(), host::FrameSource::codec,
                     host::FrameSource::lost);
    }

    void Check(const CallRecording &first, const CallRecording &other) const {
        if (other.restarted || first.firstFrame != other.firstFrame) {
            throw Failure(m_job.input,
                          "the sender's clock jumps within the call, so that there is no telling "
                          "what was lost; cut the capture there");
        }
    }

    const CompareJob &m_job;
    const std::function<void(double)> &m_progress;
    std::vector<bool> m_lost;
    OpusCall m_steady;
    CallTimeline m_lossy;
    CallTimeline m_lossFree;
    double m_spent = 0.0;
};

std::string EncodeAudio(const std::vector<CallRecording> &recordings, int sampleRate,
                        int64_t limit) {
    std::string audio = ",\"audio\":{";
    for (size_t method = 0; method < recordings.size(); ++method) {
        ThrowIfInterrupted();
        if (method > 0) audio += ',';
        audio += std::string("\"") + CompareMethods()[method].name + "\":\"";
        audio += FlacDataUrl(recordings[method].samples, sampleRate) + "\"";
        if (static_cast<int64_t>(audio.size()) >= limit) return {};
    }
    return audio + "}";
}

}  // namespace

CompareResult RunCompareJob(const CompareJob &job, const CompareOptions &options,
                            int64_t audioLimit, const std::function<void(double)> &progress) {
    const LoadedCall loaded = Load(job, options);
    const int jitterBufferMs = options.jitterBufferMs.value_or(kDefaultJitterBufferMs);
    const std::vector<CallRecording> recordings =
        CallPlayers(job, loaded, jitterBufferMs, progress).Record();

    CompareResult result;
    result.scores = ScoreCall(recordings, MethodIndex(CompareMethod::Id::ideal),
                              MethodIndex(CompareMethod::Id::codec), loaded.sampleRate);
    ThrowIfInterrupted();
    const std::vector<CompareFigure> figures =
        MakeFigures({&result.scores, 1}, ResampledUnit::gaps);
    result.entry = FileEntryJson(job.name, job.loss->id, recordings, result.scores, figures);
    result.rows = FigureRows("file", job.name, job.loss->id, figures) +
                  GapRows(job.name, job.loss->id, result.scores);
    if (audioLimit > 0) result.audio = EncodeAudio(recordings, loaded.sampleRate, audioLimit);
    for (const CallRecording &recording : recordings) {
        result.requests += recording.requests;
        result.requestsFailed += recording.requestsFailed;
    }
    return result;
}

}  // namespace aiplc::tools
