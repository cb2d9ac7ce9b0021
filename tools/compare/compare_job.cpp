// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/compare_job.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <span>
#include <utility>

#include "tools/compare/compare_figures.h"
#include "tools/compare/compare_format.h"
#include "tools/compare/compare_method.h"
#include "tools/compare/json_stream.h"
#include "tools/input/call_loader.h"
#include "tools/loss/packet_losses.h"
#include "tools/play/call_recording.h"
#include "tools/play/receiver_handle.h"
#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"

namespace aiplc::tools {
namespace {

constexpr int64_t kMaxSeconds = 3600;
constexpr int kDefaultJitterBufferMs = 40;
constexpr int kPlays = 3;  // of one call by one method, at most
// How long the parts of a job take, roughly: the worker's answers most of it.
constexpr double kPlayCost = 1.0;
constexpr double kWorkerCost = 10.0;
constexpr double kScoreCost = 3.0;

CallOptions LoadOptions(const CompareJob &job, const CompareOptions &options) {
    CallOptions load;
    load.encoding = options.encoding;
    load.stream = options.stream;
    load.jitterBufferMs = options.jitterBufferMs;
    load.sampleRate = options.sampleRate;
    load.lossExpected = job.loss->percent;
    return load;
}

LoadedCall Load(const CompareJob &job, const CompareOptions &options) {
    InputFile input = InputFile::Open(job.input);
    const CallOptions load = LoadOptions(job, options);
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
        if (call.packets[i].IsMissing()) continue;
        lost[i] = false;
        break;
    }
    return lost;
}

// The output of one call.
struct CallPlays {
    std::vector<CallRecording> methods;  // in the order of CompareMethods
    // The call without losses by the decoders that enhance, by their complexity.
    std::map<int, CallRecording> enhanced;

    // Each method beside what its decoder plays of the call without losses; points into this
    // object.
    [[nodiscard]] std::vector<ScoredPlay> Scored(std::span<const MethodSetup> setups) const {
        const CallRecording *plain = &methods[MethodIndex(CompareMethod::Id::ideal)];
        std::vector<ScoredPlay> plays;
        for (size_t i = 0; i < methods.size(); ++i) {
            const int complexity = setups[i].receiver.decoderComplexity;
            const bool enhances = setups[i].decoder.enhancement;
            plays.push_back({&methods[i], enhances ? &enhanced.at(complexity) : plain});
        }
        return plays;
    }
};

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

    CallPlays Play() {
        std::set<int> enhancing;  // decoder complexities
        for (const MethodSetup &setup : m_job.setups) {
            m_total += Cost(setup.receiver);
            if (setup.decoder.enhancement) enhancing.insert(setup.receiver.decoderComplexity);
        }
        m_total += kPlayCost * static_cast<double>(enhancing.size());

        CallPlays plays;
        for (size_t i = 0; i < m_job.setups.size(); ++i) {
            const CompareMethod::Id id = CompareMethods()[i].id;
            const bool ideal = id == CompareMethod::Id::ideal;
            plays.methods.push_back(
                PlayChecked(m_job.setups[i].receiver, ideal ? m_lossFree : m_lossy));
            if (id == CompareMethod::Id::silence) NameSilence(plays.methods.back());
        }
        for (const int complexity : enhancing) {
            plays.enhanced.emplace(complexity, PlayChecked(CodecAlone(complexity), m_lossFree));
        }
        return plays;
    }

  private:
    static double Cost(const AiPlcReceiverOptions &receiver) {
        return receiver.predictor != AIPLC_PREDICTOR_NONE ? kWorkerCost : kPlayCost;
    }

    CallRecording PlayChecked(const AiPlcReceiverOptions &receiver, const CallTimeline &timeline) {
        CallRecording recording = PlayBest(receiver, timeline);
        m_spent += Cost(receiver);
        const int64_t firstFrame = m_firstFrame.value_or(recording.firstFrame);
        m_firstFrame = firstFrame;
        if (recording.restarted || recording.firstFrame != firstFrame) {
            throw Failure(m_job.input,
                          "the sender's clock jumps within the call, so that there is no telling "
                          "what was lost; cut the capture there");
        }
        return recording;
    }

    // Late answers say how busy this machine is, nothing about a method: such a play is repeated,
    // and the one with the fewest counts.
    CallRecording PlayBest(const AiPlcReceiverOptions &receiver, const CallTimeline &timeline) {
        const auto frames = static_cast<double>(std::max<int64_t>(timeline.CallFrames(), 1));
        std::optional<CallRecording> best;
        for (int play = 0; play < kPlays; ++play) {
            CallRecording recording = RecordCall(timeline, receiver, [&](int64_t done) {
                const double share = static_cast<double>(done) / frames;
                if (play == 0) m_progress((m_spent + Cost(receiver) * share) / m_total);
            });
            if (!best || recording.requestsFailed < best->requestsFailed)
                best = std::move(recording);
            if (best->requestsFailed == 0) break;
        }
        return std::move(*best);
    }

    // The frames that the receiver counts as concealed by the codec are silence here.
    static void NameSilence(CallRecording &recording) {
        std::replace(recording.sources.begin(), recording.sources.end(), AIPLC_SOURCE_CODEC,
                     AIPLC_SOURCE_LOST);
    }

    const CompareJob &m_job;
    const std::function<void(double)> &m_progress;
    std::vector<bool> m_lost;
    OpusCall m_steady;
    CallTimeline m_lossy;
    CallTimeline m_lossFree;
    double m_total = kScoreCost;
    double m_spent = 0.0;
    std::optional<int64_t> m_firstFrame;  // of all recordings
};

}  // namespace

CompareResult RunCompareJob(const CompareJob &job, const CompareOptions &options,
                            const SoundLimits &limits,
                            const std::function<void(double)> &progress) {
    const LoadedCall loaded = Load(job, options);
    const int jitterBufferMs = options.jitterBufferMs.value_or(kDefaultJitterBufferMs);
    const CallPlays plays = CallPlayers(job, loaded, jitterBufferMs, progress).Play();
    const std::vector<CallRecording> &recordings = plays.methods;

    CompareResult result;
    for (const std::string &warning : loaded.warnings)
        result.notes += "warning: " + warning + '\n';
    for (const std::string &note : loaded.notes)
        result.notes += "note: " + note + '\n';
    result.scores = ScoreCall(plays.Scored(job.setups), MethodIndex(CompareMethod::Id::codec),
                              loaded.sampleRate);
    ThrowIfInterrupted();
    const std::vector<CompareFigure> figures =
        MakeFigures({&result.scores, 1}, ResampledUnit::gaps);
    nlohmann::ordered_json entry =
        FileEntry(job.name, job.loss->id, recordings, result.scores, figures);
    entry["payloadBitrate"] = std::llround(PayloadBitrate(loaded.call));
    result.entry = JsonText(entry);
    result.rows = FigureRows("file", job.name, job.loss->id, figures) +
                  GapRows(job.name, job.loss->id, result.scores);
    if (limits.all > 0)
        result.sound = EncodeSound(recordings, result.scores, loaded.sampleRate, limits);
    for (const CallRecording &recording : recordings) {
        result.requests += recording.requests;
        result.requestsFailed += recording.requestsFailed;
    }
    return result;
}

}  // namespace aiplc::tools
