// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_GSTREAMER_PACKET_TIMELINE_H
#define AIPLC_GSTREAMER_PACKET_TIMELINE_H

#include <cstdint>
#include <optional>

namespace aiplc::gst {

inline constexpr int64_t kFrameUnits = 960;  // 20 ms on the 48 kHz clock

// Gives the packets of a pipeline, which carry times in nanoseconds, the numbers that RTP would
// give them: sequence numbers, and positions on the 48 kHz clock without the small unevenness that
// a jitter buffer's clock recovery leaves in the times.
//
// A distance between packets is a loss when a gap event reports it or the packet behind it is
// marked as discontinuous; otherwise the sender has paused (DTX), and the sequence numbers go on.
//
// State: empty -> running with the first packet, until Restart.
class PacketTimeline {
  public:
    struct Place {
        int64_t start = 0;
        uint16_t sequence = 0;
    };

    // Places a packet that lasts so many units. time: in ns; without one it follows the newest.
    // Packets come in order, so that one whose time lies somewhat before the end follows the newest
    // too. Nothing when it lies more than 5 s ahead or 0.5 s back, and then nothing has changed: a
    // new timeline has to begin.
    std::optional<Place> Take(std::optional<uint64_t> time, int64_t units, bool isDiscontinuous);
    // Moves the end over packets that are lost (true) or were not sent (false). False when the end
    // lies too far away for one timeline, and nothing has changed.
    bool Skip(std::optional<uint64_t> time, std::optional<uint64_t> duration, bool isLost);
    // Forgets the packets' places, not the newest one's sequence number and length.
    void Restart();
    // Numbers a packet that begins no timeline.
    uint16_t NextSequence() { return ++m_sequence; }

    bool IsRunning() const { return m_running; }
    int64_t End() const { return m_end; }              // of the newest packet or loss, 48 kHz
    int64_t LastUnits() const { return m_lastUnits; }  // of the newest packet

  private:
    std::optional<int64_t> Steps(uint64_t time) const;
    int64_t Step() const;

    bool m_running = false;
    bool m_lossReported = false;  // since the newest packet
    uint16_t m_sequence = 0;      // of the newest packet
    int64_t m_end = 0;
    int64_t m_packetEnd = 0;  // of the newest packet
    int64_t m_lastUnits = kFrameUnits;
    uint64_t m_endTime = 0;  // ns, of m_end
};

}  // namespace aiplc::gst

#endif
