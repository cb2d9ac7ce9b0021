// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_GSTREAMER_STREAM_DECODER_H
#define AIPLC_GSTREAMER_STREAM_DECODER_H

#include <aiplc/receiver.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "gstreamer/packet_timeline.h"

namespace aiplc::gst {

// A stretch of output. Times in ns.
struct Sound {
    std::span<const int16_t> samples;  // valid until the call returns
    uint64_t time = 0;
    uint64_t duration = 0;
    bool isDiscontinuous = false;  // does not follow the sound before without a seam
};

// A packet of a pipeline.
struct Packet {
    std::span<const uint8_t> payload;
    std::optional<uint64_t> time;      // ns
    std::optional<uint64_t> duration;  // ns; for payloads that are not Opus
    bool isDiscontinuous = false;
};

// Packets with times in, sound with times out: a receiver that is pulled as far as packets and
// losses reach. Its start-up frames and its delay are cut off, so that each sound lies at the time
// of its packet. One thread at a time, but for Statistics.
class StreamDecoder {
  public:
    // Takes the sound; false stops the call that made it.
    using Output = std::function<bool(const Sound &)>;

    // receiver: made by AiPlcReceiverCreate with that rate, owned from here on.
    StreamDecoder(AiPlcReceiver *receiver, uint32_t sampleRate, Output output);

    // These return an AiPlcReceiverResult.
    int32_t Push(const Packet &packet);
    int32_t Skip(std::optional<uint64_t> time, std::optional<uint64_t> duration, bool isLost);
    // Plays what the look-ahead holds; the next packet begins a new timeline.
    int32_t Drain();
    // Drops it instead.
    int32_t Reset();

    bool HasBegun() const { return m_timeline.IsRunning(); }
    // From the time of a sound to the time of the packet that lets it out, in ns.
    uint64_t Latency() const;
    // Since the timeline began. On any thread.
    AiPlcReceiverStatistics Statistics() const;

  private:
    struct Destroyer {
        void operator()(AiPlcReceiver *receiver) const { AiPlcReceiverDestroy(receiver); }
    };

    int32_t PullFrames(int64_t count);
    bool Emit(std::span<const int16_t> samples);
    void FollowTime(uint64_t time, int64_t position);
    uint64_t OutputTime(int64_t samples) const;

    std::unique_ptr<AiPlcReceiver, Destroyer> m_receiver;
    mutable std::mutex m_mutex;  // of the receiver, which Statistics shares
    uint32_t m_sampleRate;
    uint32_t m_delay;  // samples
    Output m_output;
    PacketTimeline m_timeline;
    std::vector<int16_t> m_frame;
    bool m_isSpent = false;    // drained: reset before the next packet
    bool m_isStopped = false;  // by the output, in the current call
    uint64_t m_baseTime = 0;   // ns, of output sample 0
    bool m_seam = true;        // before the next sound
    int64_t m_pulledFrames = 0;
    int64_t m_emitted = 0;  // samples
};

}  // namespace aiplc::gst

#endif
