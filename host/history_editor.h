// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_HISTORY_EDITOR_H
#define AIPLC_HOST_HISTORY_EDITOR_H

#include <aiplc/aiplc.h>

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace aiplc::host {

// Changes frames that the library already holds and has not played: the one place outside the
// library that writes its history, its codec ring and its filter memories. Three occasions:
//
// - A packet arrives after its frame was due (Rewind, Rewrite).
// - A single lost frame is about to be played. The library leaves it to the codec; LookAgain asks
//   the worker instead, since the frames behind it are there by then.
// - At 48 kHz the worker predicts the band up to 8 kHz only and the library keeps the two upper
//   bands of a gap silent. BeforeApply and AfterApply put the codec's concealment there.
//
// All calls come from the channel's thread, between calls of AiPlcApply. Nothing is allocated but
// one packet node for each frame that Rewrite replaces.
class HistoryEditor {
  public:
    // A decoded frame, or the codec's concealment of a lost one.
    struct Frame {
        std::vector<int16_t> samples;  // 320 at 16 kHz, 960 at 48 kHz
        uint32_t bandwidth = 0;        // OPUS_BANDWIDTH_*
        bool lost = false;             // samples are the codec's concealment
    };

    // The filter memories at a frame boundary.
    struct Memories {
        std::array<float, AIPLC_BANK_TAPS> inputAnalysis;
        std::array<float, AIPLC_BANK_TAPS> codecAnalysis;
        std::array<float, AIPLC_BANK_TAPS> codecSynthesis;
        std::array<float, AIPLC_LOW_PASS_TAPS_16K> codecLowPass16K;
        std::array<float, AIPLC_LOW_PASS_TAPS_48K> codecLowPass48K;
    };

    enum class SecondLook {
        notDue,   // no single loss is about to be played, or there is no worker
        heldOff,  // the worker was not asked because of an earlier failure
        filled,   // the frame now holds the worker's prediction and counts as decoded
        failed,   // the worker gave no prediction: no frame has changed, and a hold-off runs
    };

    // channel has its rings and its rate and outlives the editor.
    explicit HistoryEditor(StAiPlcChannel &channel) : m_channel(channel) {}

    Memories SaveMemories() const;
    // Goes back by frames (1 to 3); memories are those before the oldest of them. As many Rewrite
    // calls must follow before the next AiPlcApply.
    void Rewind(int64_t frames, const Memories &memories);
    // Replaces the next frame after Rewind. A lost one stays a placeholder; only the codec's
    // concealment of it changes.
    void Rewrite(const Frame &frame);

    // To be called straight before AiPlcApply, behind all rewriting. When the frame that this
    // AiPlcApply will play is lost and both its neighbours are decoded, asks the worker for it with
    // one request, which blocks for at most 26 ms. Then AiPlcApply makes none: it finds a decoded
    // frame or, after a failure, one that it leaves to the codec.
    //
    // A failure sets the library's hold-off: 6 frames as after its own failures, and twice as many
    // for every further failure in a row, up to 96, so that a dead worker (10 ms a request) costs
    // no time at every single loss.
    SecondLook LookAgain();

    // To be called around every AiPlcApply. isReceived: it brings a received frame. They do nothing
    // at 16 kHz.
    void BeforeApply(bool isReceived);
    void AfterApply();

  private:
    AiPlcPkt *SecondLookEnd() const;
    bool WillBeMuted(const AiPlcPkt &output, bool isReceived) const;
    void SplitIntoBands(AiPlcPkt &node);
    void RewriteCodecNode(const Frame &frame);
    void JoinPrediction(const AiPlcPkt &placeholder, AiPlcPkt &frame) const;

    StAiPlcChannel &m_channel;
    AiPlcPkt *m_rewriteNode = nullptr;  // history node of the next Rewrite
    int32_t m_holdOffFrames = 0;        // set by the last second look if it failed, else 0
};

}  // namespace aiplc::host

#endif
