// SPDX-License-Identifier: BSD-2-Clause

#include "host/packet_buffer.h"

#include <utility>

namespace aiplc::host {
namespace {

constexpr int64_t kLongestPacket = 5760;  // 120 ms

}  // namespace

bool PacketBuffer::Insert(BufferedPacket &&packet) {
    if (m_packets.size() >= kCapacity) return false;
    const int64_t start = packet.start;
    const auto [place, isNew] = m_packets.try_emplace(start, std::move(packet));
    if (isNew) return true;
    if (packet.isCopy || !place->second.isCopy) return false;
    place->second = std::move(packet);
    return true;
}

bool PacketBuffer::Overlaps(const BufferedPacket &packet) const {
    for (auto it = m_packets.lower_bound(packet.start - kLongestPacket);
         it != m_packets.end() && it->first < packet.End(); ++it)
        if (it->second.End() > packet.start) return true;
    return false;
}

std::optional<int64_t> PacketBuffer::First() const {
    if (m_packets.empty()) return std::nullopt;
    return m_packets.begin()->first;
}

BufferedPacket *PacketBuffer::Covering(int64_t position) {
    auto end = m_packets.upper_bound(position);
    // The latest start wins, so that overlapping packets are played in order.
    while (end != m_packets.begin()) {
        BufferedPacket &packet = (--end)->second;
        if (packet.start + kLongestPacket <= position) break;
        if (packet.usableFrom <= position && packet.End() > position) return &packet;
    }
    return nullptr;
}

BufferedPacket *PacketBuffer::After(int64_t position) {
    BufferedPacket *first = nullptr;
    for (auto it = m_packets.lower_bound(position - kLongestPacket); it != m_packets.end(); ++it) {
        BufferedPacket &packet = it->second;
        if (first != nullptr && packet.start >= first->usableFrom) break;
        if (packet.usableFrom <= position) continue;
        if (first == nullptr || packet.usableFrom < first->usableFrom) first = &packet;
    }
    return first;
}

size_t PacketBuffer::EraseBefore(int64_t position) {
    size_t unused = 0;
    for (auto it = m_packets.begin(); it != m_packets.end() && it->first < position;) {
        if (it->second.End() > position) {
            ++it;
            continue;
        }
        if (!it->second.used && !it->second.isCopy) ++unused;
        it = m_packets.erase(it);
    }
    return unused;
}

size_t PacketBuffer::Clear() {
    size_t unused = 0;
    for (const auto &[start, packet] : m_packets)
        if (!packet.used && !packet.isCopy) ++unused;
    m_packets.clear();
    return unused;
}

void PacketBuffer::Shift(int64_t units) {
    Packets moved;
    for (auto &[start, packet] : m_packets) {
        packet.start += units;
        packet.usableFrom += units;
        packet.lateUntil += units;
        moved.emplace(packet.start, std::move(packet));
    }
    m_packets = std::move(moved);
}

}  // namespace aiplc::host
