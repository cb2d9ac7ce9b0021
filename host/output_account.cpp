// SPDX-License-Identifier: BSD-2-Clause

#include "host/output_account.h"

#include <cmath>

namespace aiplc::host {
namespace {

bool AsksWorker(int mode) {
    return mode >= AIPLC_INFER_GAP1_AHEAD2 && mode <= AIPLC_INFER_BURST;
}

uint8_t Flag(bool value) {
    return value ? 1 : 0;
}

AiPlcFrameSource Source(AiPlcPktType type, AiPlcFrameSource handedIn) {
    switch (type) {
        case OPUS_DECODED:
            return handedIn;
        case AIPLC_INTERPOLATE:
            return AIPLC_SOURCE_INTERPOLATED;
        case AIPLC_EXTRAPOLATE:
            return AIPLC_SOURCE_EXTRAPOLATED;
        case OPUSPLC_PREDICT:
            return AIPLC_SOURCE_CODEC;
        case PKT_MUTE:
            return AIPLC_SOURCE_MUTED;
        case PKT_LOST:
            break;
    }
    return AIPLC_SOURCE_LOST;
}

}  // namespace

OutputFrame DescribeOutput(const PipelineChannel &channel, int64_t frame, AiPlcFrameSource handedIn,
                           uint32_t concealed) {
    const AiPlcPkt &node = channel.Output();
    OutputFrame output;
    output.samples = channel.OutputSamples();
    output.frame = frame;
    output.packetType = static_cast<int32_t>(node.pktType);
    output.bandwidth = node.bandwidth;
    if (frame < 0) return output;

    const PipelineChannel::Decision &decision = channel.LastDecision();
    const bool isFilled = decision.secondLook == HistoryEditor::SecondLook::filled;
    output.source = isFilled ? AIPLC_SOURCE_SECOND_LOOK : Source(node.pktType, handedIn);
    output.concealedSamples = node.pktType == OPUS_DECODED && !isFilled
                                  ? concealed
                                  : static_cast<uint32_t>(output.samples.size());
    // A frame may carry the mode that the request for the frame before it decided for both.
    output.inferMode = node.inferMode;
    output.decidedMode = decision.mode;
    output.secondLook = Flag(isFilled || decision.secondLook == HistoryEditor::SecondLook::failed);
    output.requested = Flag(decision.requested);
    output.requestFailed = Flag(decision.failed);
    output.requestTimeMs = decision.timeMs;
    output.heldOff =
        Flag(decision.secondLook == HistoryEditor::SecondLook::heldOff ||
             (AsksWorker(decision.mode) && !decision.requested && channel.PredictorRunning()));
    output.fusedIntoPredict = Flag(node.fusedIntoPredict == 1);
    output.fusedFromPredict = Flag(node.fusedFromPredict == 1);
    output.opusPlcApplied = Flag(node.opusPlcApplied == 1);
    return output;
}

void OutputAccount::Count(const OutputFrame &frame) {
    ++m_statistics.framesBySource[frame.source];
    if (frame.frame < 0) return;
    CountDecision(frame);
    CountSamples(frame);
}

void OutputAccount::CountDecision(const OutputFrame &frame) {
    const bool isRequest = AsksWorker(frame.decidedMode);
    if (frame.heldOff == 1) ++m_statistics.decisionsHeldOff;
    if (frame.decidedMode != AIPLC_INFER_NONE && (frame.requested == 1 || !isRequest))
        ++m_statistics.decisionsByMode[frame.decidedMode];
    if (frame.requested == 0) return;
    ++m_statistics.requests;
    m_requestTimes.Add(frame.requestTimeMs);
    if (frame.requestFailed == 1) ++m_statistics.requestsFailed;
    if (frame.secondLook == 0) return;
    ++m_statistics.secondLooks;
    if (frame.requestFailed == 1) ++m_statistics.secondLooksFailed;
}

void OutputAccount::FillInTimes(Statistics &statistics) const {
    statistics.requestTimeP50Ms = m_requestTimes.Quantile(0.50);
    statistics.requestTimeP99Ms = m_requestTimes.Quantile(0.99);
    statistics.requestTimeMaxMs = m_requestTimes.Longest();
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
    if (frame.source == AIPLC_SOURCE_MUTED || frame.source == AIPLC_SOURCE_LOST)
        m_statistics.silentConcealedSamples += concealed;
    if (concealed > 0 && !m_concealing) ++m_statistics.concealmentEvents;
    m_concealing = concealed > 0;
}

}  // namespace aiplc::host
