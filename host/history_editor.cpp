// SPDX-License-Identifier: BSD-2-Clause

#include "host/history_editor.h"

#include <algorithm>
#include <cstring>

namespace aiplc::host {
namespace {

constexpr uint16_t kInferArg = 1;          // as the library's own requests have it
constexpr int32_t kHoldOffFrames = 6;      // the library's hold-off after a failed request
constexpr int32_t kMaxHoldOffFrames = 96;  // 1.9 s
constexpr int kPredictionLimit = 6;        // the library mutes the sixth predicted frame in a row
constexpr int kOpenFrames = 3;             // in the library and not yet played

using Window = std::array<int16_t, AIPLC_WINDOW_SAMPLES>;

bool IsPredicted(const AiPlcPkt &node) {
    return node.pktType == AIPLC_EXTRAPOLATE || node.pktType == AIPLC_INTERPOLATE;
}

// The worker filled this frame in a second look.
bool WasLookedAt(const AiPlcPkt &node) {
    return node.pktType == OPUS_DECODED && node.inferMode != AIPLC_INFER_NONE;
}

bool CountsTowardsLimit(const AiPlcPkt &node) {
    return node.pktType == AIPLC_EXTRAPOLATE || node.pktType == PKT_LOST;
}

// The gap that ends before this frame, or holds it, has reached the prediction limit. From there on
// the library's output dips into silence every seventh frame, so the mute is among the last seven.
bool IsBehindMute(const AiPlcPkt &frame) {
    const AiPlcPkt *node = frame.prev;
    for (int i = 0; i <= kPredictionLimit && node->pktType != OPUS_DECODED; ++i) {
        if (node->pktType == PKT_MUTE) return true;
        node = node->prev;
    }
    return false;
}

void CopyUpperBands(const AiPlcPkt &from, AiPlcPkt &to) {
    std::memcpy(to.bands[1], from.bands[1], sizeof to.bands[1]);
    std::memcpy(to.bands[2], from.bands[2], sizeof to.bands[2]);
}

// The eight frames that end with newest, oldest first.
std::array<AiPlcPkt *, AIPLC_WINDOW_FRAMES> WindowNodes(AiPlcPkt *newest) {
    std::array<AiPlcPkt *, AIPLC_WINDOW_FRAMES> nodes{};
    for (size_t slot = nodes.size(); slot-- > 0; newest = newest->prev)
        nodes[slot] = newest;
    return nodes;
}

}  // namespace

// ---- Late packets -------------------------------------------------------------------------------

HistoryEditor::Memories HistoryEditor::SaveMemories() const {
    return {std::to_array(m_channel.inputAnalysisMem), std::to_array(m_channel.opusAnalysisMem),
            std::to_array(m_channel.opusSynthesisMem), std::to_array(m_channel.opusLowPassMem16K),
            std::to_array(m_channel.opusLowPassMem48K)};
}

void HistoryEditor::Rewind(int64_t frames, const Memories &memories) {
    std::ranges::copy(memories.inputAnalysis, m_channel.inputAnalysisMem);
    std::ranges::copy(memories.codecAnalysis, m_channel.opusAnalysisMem);
    std::ranges::copy(memories.codecSynthesis, m_channel.opusSynthesisMem);
    std::ranges::copy(memories.codecLowPass16K, m_channel.opusLowPassMem16K);
    std::ranges::copy(memories.codecLowPass48K, m_channel.opusLowPassMem48K);
    m_rewriteNode = m_channel.historyRing->head->next;
    for (int64_t i = 0; i < frames; ++i) {
        m_channel.opusRing->head = m_channel.opusRing->head->prev;
        m_rewriteNode = m_rewriteNode->prev;
    }
}

void HistoryEditor::Rewrite(const Frame &frame) {
    RewriteCodecNode(frame);
    const AiPlcPkt &codec = *m_channel.opusRing->head;
    AiPlcPkt &placeholder = *m_rewriteNode;
    m_rewriteNode = m_rewriteNode->next;
    if (frame.lost) {
        CopyUpperBands(codec, placeholder);
        std::ranges::fill(m_channel.inputAnalysisMem, 0.0F);
        return;
    }
    AiPlcPkt *node = AiPlcCreatePktSn(
        frame.samples.data(), static_cast<uint32_t>(frame.samples.size() * sizeof(int16_t)),
        OPUS_DECODED, static_cast<uint16_t>(placeholder.seqNumber), frame.bandwidth);
    if (node == nullptr) return;
    SplitIntoBands(*node);
    CopyUpperBands(codec, *node);
    JoinPrediction(placeholder, *node);
    (void)AiPlcCopyPkt(&placeholder, node);
    (void)AiPlcDestroyPkt(node);
    m_channel.predictLimitHit = 0;
}

void HistoryEditor::RewriteCodecNode(const Frame &frame) {
    AiPlcRingList &ring = *m_channel.opusRing;
    ring.head = ring.head->next;
    std::ranges::copy(frame.samples, ring.head->samples);
    ring.head->sampleCount = static_cast<uint16_t>(frame.samples.size());
    ring.head->bandwidth = frame.bandwidth;
    AiPlcMaintainOpusBuff(&m_channel, 0);
}

// As the library does it for a received frame.
void HistoryEditor::SplitIntoBands(AiPlcPkt &node) {
    if (m_channel.is48K != 1) {
        std::memcpy(node.bands[0], node.samples, sizeof node.bands[0]);
        return;
    }
    std::array<float, AIPLC_FRAME_SAMPLES_48K> audio{};
    AiPlcShort2Float(node.samples, audio.data(), AIPLC_FRAME_SAMPLES_48K);
    if (AiPlcThreeBandAnalysis(audio.data(), audio.data(), m_channel.inputAnalysisMem,
                               AIPLC_FRAME_SAMPLES_48K) != 0) {
        audio.fill(0);
    }
    for (size_t band = 0; band < AIPLC_BANDS; ++band)
        AiPlcFloat2Short(&audio[band * AIPLC_BAND_SAMPLES], node.bands[band], AIPLC_BAND_SAMPLES);
}

// Where the worker made the frame before, its prediction of this one fades into the received audio,
// which does not continue that prediction.
void HistoryEditor::JoinPrediction(const AiPlcPkt &placeholder, AiPlcPkt &frame) const {
    const AiPlcPkt &before = *placeholder.prev;
    const int16_t *prediction = nullptr;
    if (WasLookedAt(before) || (IsPredicted(placeholder) && IsPredicted(before))) {
        prediction = placeholder.bands[0];
    } else if (before.pktType == AIPLC_EXTRAPOLATE && before.hasNextPredict == 1) {
        prediction = m_channel.nextPredict;
    }
    if (prediction == nullptr) return;
    AiPlcFuseSmooth(prediction, frame.bands[0], g_aiplcTriangWin16K, AIPLC_BAND_SAMPLES);
}

// ---- Second look --------------------------------------------------------------------------------

// The newest frame of the window to ask with; null when no second look is due.
AiPlcPkt *HistoryEditor::SecondLookEnd() const {
    AiPlcPkt *newest = m_channel.historyRing->head;
    AiPlcPkt *after = newest->prev;
    const AiPlcPkt *output = after->prev;
    if (m_channel.adapter == nullptr || output->pktType != PKT_LOST ||
        output->prev->pktType != OPUS_DECODED || after->pktType != OPUS_DECODED) {
        return nullptr;
    }
    return newest->pktType == OPUS_DECODED ? newest : after;
}

HistoryEditor::SecondLook HistoryEditor::LookAgain() {
    AiPlcPkt *end = SecondLookEnd();
    if (end == nullptr) return SecondLook::notDue;
    if (m_channel.inferHoldOff > 0) return SecondLook::heldOff;
    AiPlcPkt &after = *m_channel.historyRing->head->prev;
    AiPlcPkt &output = *after.prev;

    const auto nodes = WindowNodes(end);
    Window window;
    Window prediction;
    for (size_t slot = 0; slot < nodes.size(); ++slot) {
        int16_t *samples = &window[slot * AIPLC_BAND_SAMPLES];
        std::copy_n(nodes[slot]->bands[0], AIPLC_BAND_SAMPLES, samples);
        // The bank's analysis starts anew behind a gap and has not settled there.
        if (m_channel.is48K == 1 && nodes[slot] == &after)
            std::fill_n(samples, AIPLC_UNSETTLED_SAMPLES, int16_t{0});
    }
    if (AiPlcAsyncInfer(&m_channel, window.data(), prediction.data(), kInferArg) != 0) {
        m_holdOffFrames = std::clamp(2 * m_holdOffFrames, kHoldOffFrames, kMaxHoldOffFrames);
        m_channel.inferHoldOff = m_holdOffFrames;
        return SecondLook::failed;
    }
    m_holdOffFrames = 0;
    for (size_t slot = 0; slot < nodes.size(); ++slot) {
        std::copy_n(&prediction[slot * AIPLC_BAND_SAMPLES], AIPLC_BAND_SAMPLES,
                    nodes[slot]->bands[0]);
        nodes[slot]->hasNextPredict = 0;
    }
    output.pktType = OPUS_DECODED;
    output.inferMode = end == &after ? AIPLC_INFER_GAP1_AHEAD1 : AIPLC_INFER_GAP1_AHEAD2;
    return SecondLook::filled;
}

// ---- Upper bands --------------------------------------------------------------------------------

// Whether AiPlcApply will fade this lost frame out at the prediction limit, as the sixth in a row
// that has no received audio behind it.
bool HistoryEditor::WillBeMuted(const AiPlcPkt &output, bool isReceived) const {
    const AiPlcPkt *node = &output;
    for (int i = 0; i < kPredictionLimit; ++i) {
        if (!CountsTowardsLimit(*node)) return false;
        node = node->prev;
    }
    const bool isDecided = m_channel.predictLimitHit == 0 || isReceived;
    const bool isInterpolated =
        output.pktType == PKT_LOST && isDecided &&
        (output.next->pktType == OPUS_DECODED || output.next->next->pktType == OPUS_DECODED);
    return !isInterpolated;
}

void HistoryEditor::BeforeApply(bool isReceived) {
    AiPlcPkt &output = *m_channel.historyRing->head->prev->prev;
    if (m_channel.is48K != 1 || output.pktType == OPUS_DECODED) return;
    for (int16_t *band : {output.bands[1], output.bands[2]}) {
        if (IsBehindMute(output)) {
            AiPlcSetZeros(band, AIPLC_BAND_SAMPLES);
        } else if (WillBeMuted(output, isReceived)) {
            AiPlc16kFadeOut(band);
        }
    }
}

// The codec ring's bands go through one unbroken analysis, so that concealed and received frames
// join in them without a click; the library fades its own in behind a gap, from silence.
void HistoryEditor::AfterApply() {
    if (m_channel.is48K != 1) return;
    AiPlcPkt *node = m_channel.historyRing->head;
    const AiPlcPkt *codec = m_channel.opusRing->head;
    for (int i = 0; i < kOpenFrames; ++i) {
        // Behind a mute the fade-in is right: the gap was silent.
        if (i == 0 || !IsBehindMute(*node)) CopyUpperBands(*codec, *node);
        node = node->prev;
        codec = codec->prev;
    }
}

}  // namespace aiplc::host
