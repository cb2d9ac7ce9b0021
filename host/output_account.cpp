// SPDX-License-Identifier: BSD-2-Clause

#include "host/output_account.h"

#include <cmath>

namespace aiplc::host {
namespace {

bool AsksWorker(int mode) {
    return mode >= AIPLC_INFER_GAP1_AHEAD2 && mode <= AIPLC_INFER_BURST;
}

FrameSource Source(AiPlcPktType type, FrameSource handedIn) {
    switch (type) {
        case OPUS_DECODED:
            return handedIn;
        case AIPLC_INTERPOLATE:
            return FrameSource::interpolated;
        case AIPLC_EXTRAPOLATE:
            return FrameSource::extrapolated;
        case OPUSPLC_PREDICT:
            return FrameSource::codec;
        case PKT_MUTE:
            return FrameSource::muted;
        case PKT_LOST:
            break;
    }
    return FrameSource::lost;
}

}  // namespace

OutputFrame DescribeOutput(const PipelineChannel &channel, int64_t frame, FrameSource handedIn,
                           uint32_t concealed) {
    const AiPlcPkt &node = channel.Output();
    OutputFrame output;
    output.samples = channel.OutputSamples();
    output.frame = frame;
    output.type = node.pktType;
    output.bandwidth = node.bandwidth;
    if (frame < 0) return output;

    const PipelineChannel::Decision &decision = channel.LastDecision();
    const bool isFilled = decision.secondLook == HistoryEditor::SecondLook::filled;
    output.source = isFilled ? FrameSource::secondLook : Source(node.pktType, handedIn);
    output.concealedSamples = node.pktType == OPUS_DECODED && !isFilled
                                  ? concealed
                                  : static_cast<uint32_t>(output.samples.size());
    // A frame may carry the mode that the request for the frame before it decided for both.
    output.inferMode = node.inferMode;
    output.decidedMode = decision.mode;
    output.secondLook = isFilled || decision.secondLook == HistoryEditor::SecondLook::failed;
    output.requested = decision.requested;
    output.requestFailed = decision.failed;
    output.inferTimeMs = decision.timeMs;
    output.heldOff = decision.secondLook == HistoryEditor::SecondLook::heldOff ||
                     (AsksWorker(decision.mode) && !decision.requested && channel.WorkerRunning());
    output.fusedIntoPredict = node.fusedIntoPredict == 1;
    output.fusedFromPredict = node.fusedFromPredict == 1;
    output.opusPlcApplied = node.opusPlcApplied == 1;
    return output;
}

void OutputAccount::Count(const OutputFrame &frame) {
    ++m_statistics.framesBySource.at(static_cast<size_t>(frame.source));
    if (frame.frame < 0) return;
    CountDecision(frame);
    CountSamples(frame);
}

void OutputAccount::CountDecision(const OutputFrame &frame) {
    const bool isRequest = AsksWorker(frame.decidedMode);
    if (frame.heldOff) ++m_statistics.decisionsHeldOff;
    if (frame.decidedMode != AIPLC_INFER_NONE && (frame.requested || !isRequest))
        ++m_statistics.decisionsByMode.at(static_cast<size_t>(frame.decidedMode));
    if (!frame.requested) return;
    m_statistics.requestTimesMs.push_back(frame.inferTimeMs);
    if (frame.requestFailed) ++m_statistics.requestsFailed;
    if (!frame.secondLook) return;
    ++m_statistics.secondLooks;
    if (frame.requestFailed) ++m_statistics.secondLooksFailed;
}

void OutputAccount::CountSamples(const OutputFrame &frame) {
    const double duration = 1.0 / m_sampleRate;
    const size_t samples = frame.samples.size();
    m_statistics.totalSamplesReceived += samples;
    m_statistics.totalSamplesDuration += static_cast<double>(samples) * duration;
    double energy = 0;
    for (const int16_t sample : frame.samples)
        energy += std::pow(sample / 32768.0, 2);
    m_statistics.totalAudioEnergy += energy * duration;

    const uint32_t concealed = frame.concealedSamples;
    m_statistics.concealedSamples += concealed;
    if (frame.source == FrameSource::muted || frame.source == FrameSource::lost)
        m_statistics.silentConcealedSamples += concealed;
    if (concealed > 0 && !m_concealing) ++m_statistics.concealmentEvents;
    m_concealing = concealed > 0;
}

}  // namespace aiplc::host
