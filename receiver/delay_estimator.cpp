// SPDX-License-Identifier: BSD-2-Clause

#include "receiver/delay_estimator.h"

#include <algorithm>
#include <cstdlib>

namespace aiplc::receiver {
namespace {

// Share of the weight that the histogram keeps with each packet: packets of about the last four
// seconds count, and at the start all packets alike.
constexpr float kKept = 0.995F;
constexpr int64_t kFirstPackets = 200;
constexpr int64_t kMaxJump = int64_t{5} * 48000;  // a larger one is another clock

}  // namespace

void WindowMinimum::Add(int64_t time, int64_t value) {
    const int64_t number = time / kSlotTime;
    Slot &slot = m_slots[static_cast<size_t>(number) % kSlots];
    if (slot.number != number) slot = {number, value};
    slot.least = std::min(slot.least, value);
    m_value = value;
    for (const Slot &other : m_slots) {
        if (other.number <= number && other.number > number - kSlots)
            m_value = std::min(m_value, other.least);
    }
}

DelayEstimator::DelayEstimator() {
    m_histogram[size_t{20} * 48 / kBin - 1] = 0.9F;
    m_histogram[size_t{80} * 48 / kBin - 1] = 0.1F;
}

void DelayEstimator::Restart() {
    m_base = {};
    m_newest.reset();
}

int64_t DelayEstimator::Add(int64_t arrival, uint32_t timestamp) {
    const int64_t newest = m_newest.value_or(timestamp);
    const int64_t unwrapped =
        newest + static_cast<int32_t>(timestamp - static_cast<uint32_t>(newest));
    m_newest = unwrapped;
    const int64_t delay = arrival - unwrapped;
    if (m_base.HasValue() && std::abs(delay - m_base.Value()) > kMaxJump) m_base = {};
    m_base.Add(arrival, delay);

    ++m_packets;
    const float kept =
        std::min(kKept, 1.0F - 1.0F / static_cast<float>(std::min(m_packets, kFirstPackets) + 20));
    for (float &bin : m_histogram)
        bin *= kept;
    const auto bin = static_cast<size_t>((delay - m_base.Value()) / kBin);
    m_histogram[std::min(bin, kBins - 1)] += 1 - kept;
    return unwrapped;
}

int64_t DelayEstimator::Quantile(double share) const {
    double sum = 0;
    for (size_t bin = 0; bin < kBins; ++bin) {
        sum += static_cast<double>(m_histogram[bin]);
        if (sum >= share) return static_cast<int64_t>(bin + 1) * kBin;
    }
    return static_cast<int64_t>(kBins) * kBin;
}

}  // namespace aiplc::receiver
