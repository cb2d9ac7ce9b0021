// SPDX-License-Identifier: BSD-2-Clause
//
// Cost of one frame on the audio thread: AiPlcApply beside libopus's decoding of the same tick's
// packet.

#include <memory>
#include <optional>
#include <string>

#include "bench/benchmarks.h"
#include "bench/concealed_call.h"
#include "bench/durations.h"
#include "bench/instant_worker.h"
#include "bench/peer.h"
#include "bench/registration.h"
#include "bench/system_calls.h"

namespace aiplc::bench {

namespace {

constexpr int64_t kFrames = 5000;
constexpr int64_t kNetworkFrames = 1000;
constexpr int64_t kTracedFrames = 50;
constexpr int kTracedAttempts = 3;
constexpr int64_t kFrameNs = 20'000'000;

// One core: host, worker and, where there is one, a process that never sleeps share it.
enum class Load { none, oneCore, oneCoreBusy };

struct Subject {
    int rate;
    FrameKind kind;
    Answers answers;
    Rhythm rhythm;
    Load load;
};

// The objects of a call, in the order of their construction.
struct Session {
    explicit Session(const Subject &subject) {
        if (subject.load != Load::none) core = std::make_unique<OneCore>();
        if (subject.load == Load::oneCoreBusy) busy = std::make_unique<Peer>(Spin);
        if (subject.answers == Answers::given) worker = std::make_unique<InstantWorker>();
        if (subject.answers == Answers::network) UseNewNamespace();
        call = std::make_unique<ConcealedCall>(subject.rate, subject.kind, subject.answers,
                                               worker ? &worker->Adapter() : nullptr);
    }

    std::unique_ptr<OneCore> core;
    std::unique_ptr<Peer> busy;
    std::unique_ptr<InstantWorker> worker;
    std::unique_ptr<ConcealedCall> call;
};

// False after a late answer, which makes system calls of its own.
bool RunTracedFrames(const Subject &subject) {
    const Session session(subject);
    Pace pace(Rhythm::backToBack);
    bool isLate = false;
    for (int64_t i = 0; i < kTracedFrames; ++i)
        isLate |= session.call->Next(pace, ToggleSystemCallCount).isLate;
    return !isLate;
}

// A counter, or the word that there is none, which is not zero.
void ReportPerFrame(benchmark::State &state, const std::string &name, std::optional<double> total,
                    int64_t frames, std::string &label) {
    if (total) {
        state.counters[name] = *total / static_cast<double>(frames);
    } else {
        label += (label.empty() ? "" : ", ") + name + " not available";
        state.SetLabel(label);
    }
}

void ReportSystemCalls(benchmark::State &state, const Subject &subject, std::string &label) {
    std::optional<double> calls;
    for (int attempt = 0; attempt < kTracedAttempts && !calls; ++attempt)
        calls = CountSystemCalls([&subject] { return RunTracedFrames(subject); });
    ReportPerFrame(state, "system_calls", calls, kTracedFrames, label);
}

void MeasureFrames(benchmark::State &state, const Subject &subject, std::string &label) {
    const Session session(subject);
    Pace pace(subject.rhythm);
    Durations applied(state.max_iterations);
    Durations decoded(state.max_iterations);
    std::optional<double> allocations = 0;
    int64_t late = 0;
    int64_t tooLong = 0;
    for ([[maybe_unused]] auto iteration : state) {
        const ConcealedCall::Frame frame = session.call->Next(pace, [] {});
        applied.Add(frame.applyNs);
        decoded.Add(frame.decodeNs);
        if (!frame.allocations) allocations.reset();
        if (allocations) *allocations += static_cast<double>(*frame.allocations);
        late += frame.isLate ? 1 : 0;
        tooLong += frame.applyNs > kFrameNs ? 1 : 0;
        state.SetIterationTime(static_cast<double>(frame.applyNs) * 1e-9);
    }
    applied.Report(state);
    state.counters["decode_p50_us"] = decoded.MedianUs();
    state.counters["over_decode"] = applied.MedianUs() / decoded.MedianUs();
    if (subject.rhythm == Rhythm::backToBack)
        state.counters["channels_per_core"] = kFrameNs / (1000 * applied.MedianUs());
    ReportPerFrame(state, "allocations", allocations, state.max_iterations, label);
    if (subject.kind != FrameKind::predicted) return;
    const auto frames = static_cast<double>(state.max_iterations);
    state.counters["late_share"] = static_cast<double>(late) / frames;
    state.counters["over_20ms_share"] = static_cast<double>(tooLong) / frames;
}

void RunFrames(benchmark::State &state, const Subject &subject) {
    std::string label;
    if (subject.rhythm == Rhythm::backToBack && subject.answers != Answers::network)
        ReportSystemCalls(state, subject, label);
    MeasureFrames(state, subject, label);
}

bool IsLong(const Subject &subject) {
    return subject.rhythm == Rhythm::paced || subject.answers == Answers::network;
}

int64_t FramesOf(const Subject &subject) {
    if (subject.rhythm == Rhythm::paced)
        return PacedTicks() / ConcealedCall::TicksPerFrame(subject.kind);
    return subject.answers == Answers::network ? kNetworkFrames : kFrames;
}

void Add(const std::string &name, const Subject &subject) {
    const std::string rate = subject.rate == 48000 ? "48k/" : "16k/";
    Register(
        "frame/" + rate + name + "/" + NameOf(subject.rhythm), FramesOf(subject),
        [subject](benchmark::State &state) { RunFrames(state, subject); },
        IsLong(subject) ? 1 : kRepetitions);
}

}  // namespace

void RegisterFrames() {
    using enum FrameKind;
    for (const int rate : {16000, 48000}) {
        for (const Rhythm rhythm : {Rhythm::backToBack, Rhythm::paced}) {
            Add("received", {rate, received, Answers::none, rhythm, Load::none});
            Add("narrowband", {rate, narrowband, Answers::none, rhythm, Load::none});
            Add("concealed", {rate, concealed, Answers::none, rhythm, Load::none});
            Add("predicted", {rate, predicted, Answers::given, rhythm, Load::none});
            Add("network", {rate, predicted, Answers::network, rhythm, Load::oneCore});
            if (rhythm == Rhythm::paced)
                Add("network_beside_busy",
                    {rate, predicted, Answers::network, rhythm, Load::oneCoreBusy});
        }
    }
}

}  // namespace aiplc::bench
