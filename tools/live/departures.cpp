// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/departures.h"

#include <algorithm>

namespace aiplc::tools {
namespace {

constexpr int64_t kGapUs = 1000;  // between packets that have overtaken, or are sent twice

// When the packet would leave without a disturbance.
int64_t PlainUs(const OpusCall &call, size_t index) {
    const CallPacket &packet = call.packets[index];
    if (call.hasArrivalTimes) return packet.arrivalUs;
    const auto since = static_cast<int32_t>(packet.timestamp - call.packets.front().timestamp);
    return int64_t{since} * 1000 / (kOpusClock / 1000);
}

}  // namespace

std::vector<Departure> Departures(const OpusCall &call, const std::vector<bool> &lost,
                                  const Disturbance &disturbance, std::mt19937_64 &random) {
    const auto uniform = [&random] { return static_cast<double>(random() >> 11) * 0x1p-53; };
    std::vector<Departure> departures;
    int64_t last = 0;
    for (size_t i = 0; i < call.packets.size(); ++i) {
        // Each packet takes its numbers, sent or not, so that losses change no other delay.
        const double delayMs = disturbance.jitterMs * uniform();
        const bool isReordered = 100 * uniform() < disturbance.reorderPercent;
        const bool isDuplicated = 100 * uniform() < disturbance.duplicatePercent;
        last = std::max(last, PlainUs(call, i) + static_cast<int64_t>(delayMs * 1000));
        if (lost[i] || call.packets[i].IsMissing()) continue;
        int64_t at = last;
        if (isReordered && i + 1 < call.packets.size()) {
            const auto jitterUs = static_cast<int64_t>(disturbance.jitterMs * 1000);
            at = std::max(last, PlainUs(call, i + 1) + jitterUs) + kGapUs;
        }
        departures.push_back({at, i});
        if (isDuplicated) departures.push_back({at + kGapUs, i});
    }
    std::ranges::stable_sort(departures, {}, &Departure::atUs);
    return departures;
}

}  // namespace aiplc::tools
