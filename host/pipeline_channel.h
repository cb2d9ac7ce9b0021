// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_PIPELINE_CHANNEL_H
#define AIPLC_HOST_PIPELINE_CHANNEL_H

#include <aiplc/aiplc.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace aiplc::host {

// One concealment channel of the library with the host's side of it: packet records, output area,
// codec callback. Every call of ApplyReceived and ApplyLost is one frame, numbered from 0; the
// first kStartUpFrames must be received ones, so that the library's codec ring and history stay in
// step.
//
// A frame that turns up late takes the place of its placeholder: handed in together with the next
// frame (ApplyReceived), where that is exact, else with Rewind and Rewrite before the next frame is
// applied. AiPlcApply leaves the concealed audio in the codec ring, which is heard behind a frame
// that the codec concealed; it splits the frames of a call into bands newest first, which at 48 kHz
// leaves a click of 1 ms at every boundary; and it takes late frames only together with one in
// time.
class PipelineChannel {
  public:
    static constexpr int64_t kStartUpFrames = 3;
    static constexpr int64_t kLookAhead = 3;

    // A frame to hand in.
    struct Frame {
        std::vector<int16_t> samples;
        uint32_t bandwidth = 0;
        bool lost = false;  // samples are the codec's concealment
    };

    // The filter memories at a frame boundary.
    struct Memories {
        std::array<float, AIPLC_BANK_TAPS> inputAnalysis;
        std::array<float, AIPLC_BANK_TAPS> codecAnalysis;
        std::array<float, AIPLC_BANK_TAPS> codecSynthesis;
        std::array<float, AIPLC_LOW_PASS_TAPS_16K> codecLowPass16K;
        std::array<float, AIPLC_LOW_PASS_TAPS_48K> codecLowPass48K;
    };

    // Throws std::runtime_error when the channel cannot be made. A worker that does not start is no
    // error. adapter, when not null, is asked instead of a worker; it outlives the channel.
    PipelineChannel(uint32_t sampleRate, bool useWorker, AiplcAdapterInterface *adapter = nullptr);
    ~PipelineChannel();
    PipelineChannel(const PipelineChannel &) = delete;
    PipelineChannel &operator=(const PipelineChannel &) = delete;

    // The next frame, after at most kLookAhead late ones straight before it, oldest first.
    void ApplyReceived(std::span<const Frame> lateOnes, std::span<const int16_t> samples,
                       uint32_t bandwidth);
    // Whether ApplyReceived takes the frames before the next one exactly: 16 kHz, none of them
    // lost, and received audio before them.
    bool TakesLateFrames(std::span<const Frame> lateOnes) const;
    // conceal writes one frame.
    void ApplyLost(const std::function<void(std::span<int16_t>)> &conceal);

    // The frame that the last Apply call gave: its node, and its samples.
    const AiPlcPkt &Output() const { return *m_channel->outputRing->head; }
    std::span<const int16_t> OutputSamples() const { return {m_outputArea.data(), m_frameSamples}; }

    // The mode of the last decision; stale in a call that decided nothing.
    int LastInferMode() const { return m_channel->lastInferMode; }
    bool WorkerRunning() const { return m_channel->sEnableAIPLC == 1; }
    float InitTimeMs() const { return m_channel->initTimeMs; }

    Memories SaveMemories() const;
    // Goes back frames (1..kLookAhead) frames; memories are those before the oldest of them. As
    // many Rewrite calls must follow.
    void Rewind(int64_t frames, const Memories &memories);
    // The next frame after Rewind: received now, or (lost) only concealed anew by the codec.
    void Rewrite(const Frame &frame);

  private:
    void Apply();
    void AddRecord(std::span<const int16_t> samples, uint32_t bandwidth, uint16_t sequenceNumber);
    void SplitIntoBands(AiPlcPkt &node);
    void RewriteCodecNode(std::span<const int16_t> samples, uint32_t bandwidth);
    void JoinPrediction(const AiPlcPkt &placeholder, AiPlcPkt &frame) const;

    struct Deleter {
        void operator()(StAiPlcChannel *channel) const;
    };

    bool m_is48K;
    uint32_t m_frameSamples;
    std::unique_ptr<StAiPlcChannel, Deleter> m_channel;
    AiPlcHostContext m_host{};
    AiPlcHostStats m_stats{};
    std::vector<uint16_t> m_records;    // packet records of one call
    std::vector<int16_t> m_outputArea;  // one frame, and the room that AiPlcApply wants behind it
    uint16_t m_sequenceNumber = 0;      // of the next frame
    AiPlcPkt *m_rewriteNode = nullptr;  // history node of the next Rewrite
};

}  // namespace aiplc::host

#endif
