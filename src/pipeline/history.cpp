// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include <algorithm>
#include <cstring>

#include "src/pipeline/silent_frame.h"

namespace {

using aiplc::pipeline::WriteSilentFrame;

constexpr int32_t kHalfRange = 32768;
constexpr int32_t kFullRange = 65536;

bool IsRealAudio(const AiPlcPkt &node) {
    return node.pktType == OPUS_DECODED || node.pktType == AIPLC_EXTRAPOLATE ||
           node.pktType == AIPLC_INTERPOLATE;
}

// Frames missing between a frame and the one received before it.
int32_t MissingBefore(const AiPlcPkt &frame) {
    if (frame.prev == nullptr) return 0;
    const int32_t step = AiPlcCalSeqNumberDif(static_cast<uint16_t>(frame.seqNumber),
                                              static_cast<uint16_t>(frame.prev->seqNumber));
    return std::max(step - 1, 0);
}

// Fills the slot's bands from its samples. A failed split leaves the bands silent.
void SplitIntoBands(StAiPlcChannel &channel, AiPlcPkt &slot) {
    if (channel.is48K != 1) {
        std::memcpy(slot.bands[0], slot.samples, sizeof slot.bands[0]);
        return;
    }
    float frame[AIPLC_FRAME_SAMPLES_48K];
    AiPlcShort2Float(slot.samples, frame, AIPLC_FRAME_SAMPLES_48K);
    if (AiPlcThreeBandAnalysis(frame, frame, channel.inputAnalysisMem, AIPLC_FRAME_SAMPLES_48K) !=
        0) {
        std::memset(slot.bands, 0, sizeof slot.bands);
        return;
    }
    AiPlcFloat2Short(frame, slot.bands[0], AIPLC_BANDS * AIPLC_BAND_SAMPLES);
}

// Writes positions of the input ring, newest frame first. When a call places more nodes than the
// ring holds, later positions overwrite earlier ones; those that would not survive are skipped, so
// that hostile sequence numbers cost no time on the audio thread.
class InputRingWriter {
  public:
    InputRingWriter(StAiPlcChannel &channel, int64_t total)
        : m_channel(channel),
          m_slot(channel.inputRing->head),
          m_firstKept(total - channel.inputRing->count) {}

    void WriteFrame(const AiPlcPkt &frame, int32_t missing) {
        // The frame before the first kept one still sets the analysis state.
        if (m_position + 1 + missing >= m_firstKept) {
            (void)AiPlcCopyPkt(m_slot, &frame);
            SplitIntoBands(m_channel, *m_slot);
        }
        Step(1);
    }

    void WriteGap(uint32_t newerSeqNumber, int32_t missing) {
        const auto skipped =
            static_cast<int32_t>(std::clamp<int64_t>(m_firstKept - m_position, 0, missing));
        Step(skipped);
        for (int32_t i = skipped; i < missing; ++i) {
            const uint32_t number = newerSeqNumber - 1 - static_cast<uint32_t>(i);
            WriteSilentFrame(m_slot, m_channel.frameSamples, PKT_LOST, number, 0);
            Step(1);
        }
    }

  private:
    void Step(int32_t count) {
        m_position += count;
        for (int32_t i = count % m_channel.inputRing->count; i > 0; --i)
            m_slot = m_slot->prev;
    }

    StAiPlcChannel &m_channel;
    AiPlcPkt *m_slot;
    int64_t m_position = 0;  // 0 (ring head) .. total
    int64_t m_firstKept;     // first position that no later one overwrites; negative: all survive
};

}  // namespace

int32_t AiPlcCalSeqNumberDif(uint16_t a, uint16_t b) {
    const int32_t difference = int32_t{a} - int32_t{b};
    if (difference > kHalfRange) return difference - kFullRange;
    if (difference < -kHalfRange) return difference + kFullRange;
    return difference;
}

int32_t AiPlcUpdateInputBuff(StAiPlcChannel *channel, AiPlcPkt *received, uint16_t count) {
    if (count == 0) return 0;
    AiPlcPkt *newest = received;
    for (uint16_t i = 1; i < count; ++i)
        newest = newest->next;

    int64_t total = 0;
    const AiPlcPkt *frame = newest;
    for (uint16_t left = count; left > 0; --left) {
        total += 1;
        if (left == 1) break;
        total += MissingBefore(*frame);
        frame = frame->prev;
    }

    InputRingWriter writer(*channel, total);
    frame = newest;
    for (uint16_t left = count; left > 0; --left) {
        const int32_t missing = left > 1 ? MissingBefore(*frame) : 0;
        writer.WriteFrame(*frame, missing);
        writer.WriteGap(frame->seqNumber, missing);
        frame = frame->prev;
    }
    return static_cast<int32_t>(total);
}

int32_t AiPlcUpdateHisBuffStatus(StAiPlcChannel *channel, AiPlcPkt *received, uint16_t count) {
    if (channel == nullptr) return -1;
    if (received == nullptr) {
        AiPlcMaintainBuff(channel);
        return 0;
    }
    const int32_t written = AiPlcUpdateInputBuff(channel, received, count);
    AiPlcRingList &history = *channel->historyRing;
    history.head = history.head->next;

    AiPlcPkt *target = history.head;
    const AiPlcPkt *input = channel->inputRing->head;
    // Past the rings' length the walk would only repeat the same copies.
    for (int32_t left = std::min<int32_t>(written, history.count); left > 0; --left) {
        if (!(IsRealAudio(*target) && input->pktType == PKT_LOST)) {
            (void)AiPlcCopyPkt(target, input);
        }
        target = target->prev;
        input = input->prev;
    }

    AiPlcPkt *node = history.head;
    for (int i = 0; i < 3; ++i) {
        node->prev->seqNumber = static_cast<uint16_t>(node->seqNumber - 1);
        node = node->prev;
    }
    return 0;
}

void AiPlcMaintainBuff(StAiPlcChannel *channel) {
    AiPlcRingList &history = *channel->historyRing;
    const AiPlcPkt *newest = history.head;
    WriteSilentFrame(newest->next, channel->frameSamples, PKT_LOST, newest->seqNumber + 1,
                     newest->bandwidth);
    history.head = newest->next;
    // The next received frame does not continue the previous one.
    std::memset(channel->inputAnalysisMem, 0, sizeof channel->inputAnalysisMem);
}

void AiPlcInitBuffering(StAiPlcChannel *channel, AiPlcPkt *received, uint16_t count,
                        AiPlcPkt *output, uint16_t *frames) {
    if (received == nullptr) return;
    AiPlcRingList &history = *channel->historyRing;
    const AiPlcPkt *source = received;
    for (uint16_t left = count; left > 0; --left) {
        history.head = history.head->next;
        if (left > history.count) continue;
        (void)AiPlcCopyPkt(history.head, source);
        // A frame is played from its bands, these first ones too.
        if (source == received) SplitIntoBands(*channel, *history.head);
        source = history.head;
    }
    WriteSilentFrame(output, channel->frameSamples, PKT_MUTE, 0, 0);
    *frames = 1;
    ++channel->bufferedFrames;
}

int32_t AiPlcCheckHisBuffStatus(StAiPlcChannel *channel) {
    if (channel == nullptr || channel->historyRing == nullptr ||
        channel->historyRing->head == nullptr) {
        return -1;
    }
    const AiPlcPkt *node = channel->historyRing->head;
    for (int32_t position = 1; position < 4; ++position) {
        if (node->pktType == OPUS_DECODED) return position;
        node = node->prev;
    }
    return 4;
}
