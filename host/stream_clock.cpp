// SPDX-License-Identifier: BSD-2-Clause

#include "host/stream_clock.h"

#include <algorithm>
#include <cstdlib>

namespace aiplc::host {
namespace {

constexpr int64_t kMaxJump = int64_t{10} * 48000;  // 10 s
constexpr int64_t kMaxSequenceJump = 3000;         // RFC 3550 A.1, MAX_DROPOUT
constexpr int64_t kSequenceCycle = 65536;
// Opus frames last whole multiples of 2.5 ms; a sender whose clock strays is put back on the grid.
constexpr int64_t kGrid = 120;

}  // namespace

int64_t OnGrid(int64_t position) {
    const int64_t shifted = position + kGrid / 2;
    const int64_t rest = ((shifted % kGrid) + kGrid) % kGrid;
    return shifted - rest;
}

StreamClock::Place StreamClock::PlaceOf(const RtpPacket &packet, int64_t now) const {
    const uint32_t timestampNow = m_origin + static_cast<uint32_t>(now);
    const auto sequenceStep =
        static_cast<int16_t>(packet.sequenceNumber - static_cast<uint16_t>(m_highest));
    return {OnGrid(now + static_cast<int32_t>(packet.timestamp - timestampNow)),
            m_highest + sequenceStep};
}

bool StreamClock::IsNear(const Place &place, int64_t reference) const {
    return std::abs(place.start - reference) <= kMaxJump &&
           std::abs(place.sequence - m_highest) <= kMaxSequenceJump;
}

bool StreamClock::ContinuesProbation(const RtpPacket &packet) const {
    if (!m_probation) return false;
    const uint32_t step = packet.timestamp - m_probation->timestamp;
    return packet.sequenceNumber == static_cast<uint16_t>(m_probation->sequenceNumber + 1) &&
           step > 0 && step <= kMaxJump;
}

// False when the sequence number was seen already.
bool StreamClock::Remember(int64_t sequence) {
    int64_t &slot = m_seen[static_cast<uint64_t>(sequence) % kRemembered];
    if (slot == sequence + 1) return false;
    slot = sequence + 1;
    return true;
}

void StreamClock::Begin(const RtpPacket &packet, int64_t now) {
    if (m_running) m_expectedBefore += m_highest - m_lowest + 1;
    // A cycle apart from all numbers before, so that nothing old counts as a duplicate.
    m_highest = (m_highest / kSequenceCycle + 2) * kSequenceCycle + packet.sequenceNumber;
    m_lowest = m_highest;
    m_newestStart = now;
    m_origin = packet.timestamp - static_cast<uint32_t>(now);
    m_running = true;
    m_probation.reset();
}

void StreamClock::Realign(const RtpPacket &packet, int64_t now) {
    m_origin = packet.timestamp - static_cast<uint32_t>(now);
    m_newestStart = now;
}

StreamClock::Arrival StreamClock::Arrive(const RtpPacket &packet, int64_t now) {
    const bool isNewSource = m_running && m_nextIsNewSource;
    if (!m_running || isNewSource) Begin(packet, now);
    m_nextIsNewSource = false;
    Place place = PlaceOf(packet, now);
    Verdict verdict = isNewSource ? Verdict::restarted : Verdict::placed;
    if (place.start > now && IsNear(place, m_newestStart)) {
        m_newestStart = std::max(m_newestStart, place.start);
        if (!IsNear(place, now)) return {Verdict::misplaced, place};
    } else if (!IsNear(place, now)) {
        if (!ContinuesProbation(packet)) {
            m_probation = RtpPacket{packet.sequenceNumber, packet.timestamp, {}};
            return {Verdict::misplaced, place};
        }
        Begin(packet, now);
        place = {now, m_highest};
        verdict = Verdict::restarted;
    }
    ++m_received;
    m_highest = std::max(m_highest, place.sequence);
    m_lowest = std::min(m_lowest, place.sequence);
    return {Remember(place.sequence) ? verdict : Verdict::duplicate, place};
}

int64_t StreamClock::PacketsLost() const {
    if (!m_running) return 0;
    return m_expectedBefore + m_highest - m_lowest + 1 - m_received;
}

}  // namespace aiplc::host
