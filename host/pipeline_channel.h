// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_PIPELINE_CHANNEL_H
#define AIPLC_HOST_PIPELINE_CHANNEL_H

#include <aiplc/adapter.h>
#include <aiplc/aiplc.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "host/history_editor.h"

namespace aiplc::host {

// One concealment channel of the library with the host's side of it: packet records, output area,
// codec callback. Every call of ApplyReceived and ApplyLost is one frame, numbered from 0; the
// first kStartUpFrames must be received ones, so that the library's codec ring and history stay in
// step. Frames that turn up late, and single losses, are History()'s.
//
// After three failed requests in a row the worker is left alone twice as long with each further
// one, up to half a minute, and from its next answer on it is asked as before.
class PipelineChannel {
  public:
    static constexpr int64_t kStartUpFrames = 3;
    static constexpr int64_t kLookAhead = AIPLC_LOOK_AHEAD_FRAMES;

    struct Options {
        uint32_t sampleRate = 48000;  // 16000 or 48000
        // In a namespace of its own, unless AIPLC_NAMESPACE is set (worker_namespace.h).
        bool useWorker = true;
        bool useSecondLook = true;  // ask the worker for single losses too
        // Asked instead of a worker when not null; outlives the channel.
        AiplcAdapterInterface *adapter = nullptr;
    };

    // Decision and request of one Apply call, both about the frame that it played. A call makes at
    // most one request.
    struct Decision {
        int mode = AIPLC_INFER_NONE;  // AiPlcInferMode that the library decided
        HistoryEditor::SecondLook secondLook = HistoryEditor::SecondLook::notDue;
        bool requested = false;  // the worker was asked, by the library or in a second look
        bool failed = false;     // and gave no prediction in time
        float timeMs = 0;        // of the request, 0 without one
    };

    // Throws std::runtime_error when the channel cannot be made. A worker that does not start is no
    // error.
    explicit PipelineChannel(const Options &options);
    ~PipelineChannel();
    PipelineChannel(const PipelineChannel &) = delete;
    PipelineChannel &operator=(const PipelineChannel &) = delete;

    // Hands in the next frame and plays the one three before it.
    void ApplyReceived(std::span<const int16_t> samples, uint32_t bandwidth);
    // The same with a lost frame; conceal writes the codec's concealment of it.
    void ApplyLost(const std::function<void(std::span<int16_t>)> &conceal);

    // The frame that the last Apply call gave: its node, and its samples.
    const AiPlcPkt &Output() const { return *m_channel->outputRing->head; }
    std::span<const int16_t> OutputSamples() const { return {m_outputArea.data(), m_frameSamples}; }
    const Decision &LastDecision() const { return m_decision; }

    // Asks this one from now on, in place of a worker or of the adapter before it.
    void UseAdapter(std::unique_ptr<AiplcAdapterInterface> adapter) noexcept;
    // Takes over the worker or the adapter of a channel, which then leaves all to the codec. This
    // channel has none yet.
    void TakePredictorFrom(PipelineChannel &other) noexcept;

    HistoryEditor &History() { return *m_history; }
    // Whether there is a worker or an adapter to ask.
    bool PredictorRunning() const { return m_channel->sEnableAIPLC == 1 || m_hasAdapter; }
    float InitTimeMs() const { return m_channel->initTimeMs; }

  private:
    void Apply(bool isReceived);
    void RestAfterFailures();
    void WriteRecord(std::span<const int16_t> samples, uint32_t bandwidth);

    struct Deleter {
        void operator()(StAiPlcChannel *channel) const;
    };

    uint32_t m_frameSamples;
    bool m_useSecondLook;
    bool m_hasAdapter;                                 // another one than the library's
    std::unique_ptr<AiplcAdapterInterface> m_adapter;  // outlives the channel, which may use it
    std::unique_ptr<StAiPlcChannel, Deleter> m_channel;
    std::optional<HistoryEditor> m_history;  // of m_channel
    Decision m_decision;
    int m_failuresInARow = 0;  // of requests
    int m_restFrames = 0;      // left until the worker is asked again
    AiPlcHostContext m_host{};
    AiPlcHostStats m_stats{};
    std::vector<uint16_t> m_record;     // packet record of one frame
    std::vector<int16_t> m_outputArea;  // one frame, and the room that AiPlcApply wants behind it
    uint16_t m_sequenceNumber = 0;      // of the next frame
};

}  // namespace aiplc::host

#endif
