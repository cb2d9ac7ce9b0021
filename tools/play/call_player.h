// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CALL_PLAYER_H
#define AIPLC_TOOLS_CALL_PLAYER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/input/opus_call.h"
#include "tools/play/receiver_handle.h"

namespace aiplc::tools {

// When a call's packets reach the receiver, and what that means for its output. Positions and
// lengths are in output samples unless said otherwise; frames are 20 ms.
class CallTimeline {
  public:
    // lost: one verdict per packet; true = never arrives. sampleRate: 16000 or 48000.
    // jitterBufferMs: how long after the first packet's arrival playing starts; captures only.
    CallTimeline(const OpusCall &call, std::vector<bool> lost, int sampleRate, int jitterBufferMs);

    [[nodiscard]] const OpusCall &Call() const { return *m_call; }
    [[nodiscard]] bool Lost(size_t packet) const { return m_lost[packet]; }
    [[nodiscard]] int64_t FrameSamples() const { return m_frameSamples; }
    [[nodiscard]] int SampleRate() const { return m_sampleRate; }
    // Latest arrival, in microseconds after the first packet's, that is in time for a frame.
    [[nodiscard]] int64_t DeadlineUs(int64_t tick) const;

    // Frames that the call's packets span.
    [[nodiscard]] int64_t CallFrames() const { return m_callFrames; }
    // Output before the first sample of the call's audio: the look-ahead, what the encoder and the
    // filters delay, less what is missing before a first packet in mid-frame.
    [[nodiscard]] int64_t Delay() const { return m_delay; }
    // Length of the call's audio.
    [[nodiscard]] int64_t Samples() const { return m_samples; }
    // Frames to pull so that all of that audio has come out.
    [[nodiscard]] int64_t Ticks() const;
    // Where the first packet that arrives begins within its frame. Not 0 only when a packet of less
    // than 20 ms is lost at the very beginning: the receiver's frames then begin in mid-frame.
    [[nodiscard]] int64_t StartOffset() const { return m_startOffset; }

  private:
    const OpusCall *m_call;
    std::vector<bool> m_lost;
    int m_sampleRate;
    int64_t m_bufferUs;
    int64_t m_frameSamples;
    int64_t m_callFrames;
    int64_t m_startOffset = 0;
    int64_t m_delay = 0;
    int64_t m_samples;
};

// A receiver that is being fed a call, tick by tick.
class CallPlayer {
  public:
    // timeline must outlive this object, and its rate is the receiver's. Starting the worker may
    // block for up to 8 s. Throws Failure.
    CallPlayer(const CallTimeline &timeline, AiPlcReceiverOptions options);

    // The next tick: packets that have arrived by now go in, one frame comes out; frame 0 of the
    // call in tick 3. Valid until the next call.
    const PlayedFrame &Next();

    [[nodiscard]] const ReceiverHandle &Receiver() const { return m_receiver; }
    // Time spent in the receiver so far.
    [[nodiscard]] std::chrono::nanoseconds Spent() const { return m_spent; }

  private:
    const CallTimeline &m_timeline;
    ReceiverHandle m_receiver;
    std::vector<uint8_t> m_datagram;  // the last packet of redundant audio
    size_t m_nextPacket = 0;
    int64_t m_tick = 0;
    std::chrono::nanoseconds m_spent{0};
};

// Whether the frame has audio that was lost and made up. Start-up, a sender's pause and audio that
// came late or as redundancy are none of that.
bool IsConcealed(AiPlcFrameSource source);

}  // namespace aiplc::tools

#endif
