// SPDX-License-Identifier: BSD-2-Clause

#include "gstreamer/packet_timeline.h"

#include <algorithm>
#include <cmath>

namespace aiplc::gst {
namespace {

constexpr int64_t kLongestGap = int64_t{5} * 48000;  // 5 s
constexpr int64_t kLongestGapNs = 5'000'000'000;
constexpr int64_t kLongestStepBackNs = 500'000'000;
constexpr double kNsPerUnit = 1e9 / 48000;

uint64_t Nanoseconds(int64_t units) {
    return static_cast<uint64_t>(units) * 62500 / 3;
}

// Right for every pair of times, however far apart.
int64_t Difference(uint64_t time, uint64_t from) {
    return static_cast<int64_t>(time - from);
}

}  // namespace

// Packets of one stream begin at multiples of the shortest one's length.
int64_t PacketTimeline::Step() const {
    return std::min(m_lastUnits, kFrameUnits);
}

// From the end to time; nothing when that is too far.
std::optional<int64_t> PacketTimeline::Steps(uint64_t time) const {
    const int64_t distance = Difference(time, m_endTime);
    if (distance > kLongestGapNs || distance < -kLongestStepBackNs) return {};
    return std::llround(static_cast<double>(distance) / kNsPerUnit / static_cast<double>(Step()));
}

std::optional<PacketTimeline::Place> PacketTimeline::Take(std::optional<uint64_t> time,
                                                          int64_t units, bool isDiscontinuous) {
    if (!m_running) {
        m_endTime = time.value_or(0);
        m_lastUnits = units;
    }
    const uint64_t begin = time.value_or(m_endTime);
    const std::optional<int64_t> steps = Steps(begin);
    if (!steps) return {};
    // A single step that nothing marks is taken for unevenness of the times.
    const bool isGap = *steps >= (isDiscontinuous ? 1 : 2);
    const int64_t skipped = isGap ? *steps * Step() : 0;
    if (skipped > 0 && isDiscontinuous && !m_lossReported) {
        const int64_t packets = std::max<int64_t>(skipped / m_lastUnits, 1);
        m_sequence = static_cast<uint16_t>(m_sequence + packets);
    }
    const Place place{m_end + skipped, ++m_sequence};
    m_running = true;
    m_lossReported = false;
    m_end = place.start + units;
    m_packetEnd = m_end;
    m_lastUnits = units;
    m_endTime = begin + Nanoseconds(units);
    return place;
}

bool PacketTimeline::Skip(std::optional<uint64_t> time, std::optional<uint64_t> duration,
                          bool isLost) {
    if (!m_running) return true;
    const uint64_t length = duration.value_or(Nanoseconds(m_lastUnits));
    const uint64_t end = time.value_or(m_endTime) + length;
    const std::optional<int64_t> steps = Steps(end);
    if (!steps || length > static_cast<uint64_t>(kLongestGapNs)) return false;
    if (*steps <= 0) return true;
    if (m_end + *steps * Step() - m_packetEnd > kLongestGap) return false;
    m_end += *steps * Step();
    m_endTime = end;
    if (!isLost) return true;
    const double packets =
        static_cast<double>(length) / kNsPerUnit / static_cast<double>(m_lastUnits);
    m_sequence = static_cast<uint16_t>(m_sequence + std::max<int64_t>(std::llround(packets), 1));
    m_lossReported = true;
    return true;
}

void PacketTimeline::Restart() {
    PacketTimeline begun;
    begun.m_sequence = m_sequence;
    begun.m_lastUnits = m_lastUnits;
    *this = begun;
}

}  // namespace aiplc::gst
