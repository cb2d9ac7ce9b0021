// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_STREAM_CLOCK_H
#define AIPLC_HOST_STREAM_CLOCK_H

#include <array>
#include <cstdint>
#include <optional>

#include "host/rtp_packet.h"

namespace aiplc::host {

// Length of a frame on the 48 kHz clock that all positions of the host engine are counted in.
inline constexpr int64_t kFrameUnits = 960;

// The nearest position at which an Opus frame can begin: whole multiples of 2.5 ms.
int64_t OnGrid(int64_t position);

// Places packets on the call's timeline: unwraps sequence numbers and timestamps, finds duplicates,
// and follows a sender that restarts its clock, while a stray packet changes nothing.
//
// State: empty (no packet yet) -> running, for good. While running, at most one packet lies on
// probation: the first one seen far away from the timeline (RFC 3550 A.1).
class StreamClock {
  public:
    struct Place {
        int64_t start = 0;  // on the 48 kHz clock; frame n of the call covers [960 n, 960 n + 960)
        int64_t sequence = 0;  // unwrapped; neighbours differ by 1
    };
    enum class Verdict {
        placed,
        duplicate,
        misplaced,  // more than 10 s or 3000 packets away, or as much too early: not usable
        restarted,  // placed; the timeline now continues at this packet, what lay ahead is void
    };
    struct Arrival {
        Verdict verdict = Verdict::placed;
        Place place;
    };

    // now: start of the frame that is due next. A restarted packet is placed there.
    Arrival Arrive(const RtpPacket &packet, int64_t now);

    // Another sender goes on with the call: its numbers have nothing to do with those before. The
    // next packet is the first of them; where packets came before, it restarts the timeline.
    void ExpectNewSource() { m_nextIsNewSource = true; }

    // Where the audio of this timestamp is near now; on the same scale.
    int64_t PositionOf(uint32_t timestamp, int64_t now) const {
        return now + static_cast<int32_t>(timestamp - m_origin - static_cast<uint32_t>(now));
    }

    // Moves all positions by units, before the first frame was played.
    void Shift(int64_t units) { m_origin -= static_cast<uint32_t>(units); }

    // Puts this packet, just placed, at now: the sender's clock has fallen behind for good.
    void Realign(const RtpPacket &packet, int64_t now);

    // RFC 3550 6.4.1: packets expected minus received; negative with duplicates.
    int64_t PacketsLost() const;

  private:
    static constexpr size_t kRemembered = 4096;

    bool IsNear(const Place &place, int64_t reference) const;
    bool ContinuesProbation(const RtpPacket &packet) const;
    void Begin(const RtpPacket &packet, int64_t now);
    bool Remember(int64_t sequence);
    Place PlaceOf(const RtpPacket &packet, int64_t now) const;

    bool m_running = false;
    bool m_nextIsNewSource = false;
    uint32_t m_origin = 0;         // timestamp of position 0
    int64_t m_newestStart = 0;     // furthest position that the sender has reached without a jump
    int64_t m_highest = 0;         // newest sequence number
    int64_t m_lowest = 0;          // first one since the last restart
    int64_t m_expectedBefore = 0;  // packets expected before it
    int64_t m_received = 0;        // duplicates included
    std::optional<RtpPacket> m_probation;       // payload empty
    std::array<int64_t, kRemembered> m_seen{};  // sequence + 1 by its low bits
};

}  // namespace aiplc::host

#endif
