// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_PACKET_BUFFER_H
#define AIPLC_HOST_PACKET_BUFFER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "host/opus_packet.h"

namespace aiplc::host {

// A packet on the call's timeline. Positions are 48 kHz samples since the start of frame 0.
struct BufferedPacket {
    static constexpr int64_t kUnknownSequence = -1;

    int64_t start = 0;
    int64_t usableFrom = 0;  // later than start when its beginning came too late to be used
    int64_t lateUntil = 0;   // audio before this position was due when the packet arrived
    int64_t sequence = 0;    // kUnknownSequence: of some copies
    OpusPacketInfo info;
    std::vector<uint8_t> payload;
    bool isCopy = false;    // came in a later packet (RFC 2198)
    bool used = false;      // decoded into the timeline
    bool fecUsed = false;   // its redundancy was
    bool fecTried = false;  // a recovery from its redundancy was attempted
    bool counted = false;   // in the statistics, once its copy or its redundancy is past use

    int64_t End() const { return start + info.duration; }
    int64_t FecStart() const { return start - info.frameDuration; }
    bool IsWhole() const { return usableFrom == start; }
    bool OffersFec() const { return info.redundancy && IsWhole(); }
};

// The packets between the oldest frame that can still be rewritten and the newest arrival, in order
// of time. Holds at most kCapacity.
class PacketBuffer {
  public:
    static constexpr size_t kCapacity = 1024;
    using Packets = std::map<int64_t, BufferedPacket>;  // by start

    // False when full or when another packet has the same start, unless that is a copy, whose place
    // the packet itself takes.
    bool Insert(BufferedPacket &&packet);

    // Whether a packet lies where this one would.
    bool Overlaps(const BufferedPacket &packet) const;
    // Where the first packet begins, or nothing.
    std::optional<int64_t> First() const;

    // The packet whose usable part covers position, or null.
    BufferedPacket *Covering(int64_t position);
    // The first packet whose usable part starts after position, or null.
    BufferedPacket *After(int64_t position);

    void Erase(const BufferedPacket &packet) { m_packets.erase(packet.start); }
    // Drops what ends at or before position; returns how many of those were never used. Copies do
    // not count.
    size_t EraseBefore(int64_t position);
    // Drops everything; returns how many were never used, without copies.
    size_t Clear();
    // Moves all packets by units.
    void Shift(int64_t units);

    bool Empty() const { return m_packets.empty(); }
    Packets &All() { return m_packets; }

  private:
    Packets m_packets;
};

}  // namespace aiplc::host

#endif
