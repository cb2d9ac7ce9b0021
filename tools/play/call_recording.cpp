// SPDX-License-Identifier: BSD-2-Clause

#include "tools/play/call_recording.h"

#include <algorithm>

#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"

namespace aiplc::tools {

CallRecording RecordCall(const CallTimeline &timeline, const AiPlcReceiverOptions &options,
                         const std::function<void(int64_t)> &report) {
    CallPlayer player(timeline, options);
    if (options.predictor == AIPLC_PREDICTOR_WORKER && !player.Receiver().PredictorRunning()) {
        throw Failure(
            "the worker did not start; it belongs in x64/ beside this program, --verbose tells "
            "what went wrong");
    }
    CallRecording recording;
    const auto frames = static_cast<size_t>(timeline.CallFrames());
    recording.samples.reserve(frames * static_cast<size_t>(timeline.FrameSamples()));
    recording.sources.reserve(frames);
    for (int64_t tick = 0; tick < timeline.CallFrames() + kLookAheadFrames; ++tick) {
        ThrowIfInterrupted();
        const PlayedFrame &frame = player.Next();
        if (tick < kLookAheadFrames) continue;
        if (recording.sources.empty()) recording.firstFrame = frame.frame;
        recording.samples.insert(recording.samples.end(), frame.samples.begin(),
                                 frame.samples.end());
        recording.sources.push_back(frame.Source());
        report(recording.Frames());
    }
    const AiPlcReceiverStatistics statistics = player.Receiver().Statistics();
    recording.restarted = statistics.timelineRestarts > 0;
    recording.requests = statistics.requests;
    recording.requestsFailed = statistics.requestsFailed;
    recording.secondLooks = statistics.secondLooks;
    return recording;
}

OpusCall WithoutJitter(const OpusCall &call, const std::vector<bool> &lost, int jitterBufferMs) {
    // Positions on the 48 kHz clock, free of its wrap.
    std::vector<int64_t> positions;
    int64_t position = 0;
    uint32_t previous = call.packets.front().timestamp;
    int64_t firstPlayed = 0;
    for (size_t i = 0; i < call.packets.size(); ++i) {
        const CallPacket &packet = call.packets[i];
        position += static_cast<int32_t>(packet.timestamp - previous);
        previous = packet.timestamp;
        positions.push_back(position);
        const bool inFirstTick = packet.arrivalUs <= int64_t{jitterBufferMs} * 1000;
        if (inFirstTick && !lost[i]) firstPlayed = std::min(firstPlayed, position);
    }
    std::vector<size_t> order;
    for (size_t i = 0; i < positions.size(); ++i) {
        if (positions[i] >= firstPlayed) order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return positions[a] < positions[b]; });
    OpusCall steady = call;
    steady.packets.clear();
    for (const size_t i : order) {
        CallPacket packet = call.packets[i];
        packet.arrivalUs = (positions[i] - firstPlayed) * 1000 / (kOpusClock / 1000);
        steady.packets.push_back(std::move(packet));
    }
    return steady;
}

}  // namespace aiplc::tools
