// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_RECEIVER_DELAY_ESTIMATOR_H
#define AIPLC_RECEIVER_DELAY_ESTIMATOR_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

namespace aiplc::receiver {

// The smallest value of the last two seconds. The smallest value follows a drift between the two
// clocks whose difference the values are. Times and values are in 48 kHz samples.
class WindowMinimum {
  public:
    void Add(int64_t time, int64_t value);
    // False before the first value.
    [[nodiscard]] bool HasValue() const { return m_value != kNone; }
    [[nodiscard]] int64_t Value() const { return m_value; }

  private:
    static constexpr int64_t kNone = std::numeric_limits<int64_t>::max();
    static constexpr int64_t kSlotTime = 12000;  // 250 ms
    static constexpr int64_t kSlots = 8;
    struct Slot {
        int64_t number = std::numeric_limits<int64_t>::min();  // time / kSlotTime
        int64_t least = kNone;
    };

    std::array<Slot, kSlots> m_slots;  // by number modulo kSlots
    int64_t m_value = kNone;
};

// Learns from the arrivals how much longer than the fastest packets of the last two seconds the
// others take: a histogram of the relative delays in which older packets count less and less.
// Late and discarded packets belong into it, lost ones do not.
class DelayEstimator {
  public:
    DelayEstimator();

    // arrival: on any steady clock; both in 48 kHz samples. Returns the timestamp unwrapped.
    int64_t Add(int64_t arrival, uint32_t timestamp);

    // Another sender's clock: the fastest packet is unknown again, the histogram stays.
    void Restart();

    // Arrival minus timestamp of the fastest packets; only after the first packet.
    [[nodiscard]] int64_t Base() const { return m_base.Value(); }

    // The delay in 48 kHz samples that this share of the packets, 0 to 1, does not exceed; rounded
    // up to 5 ms. Until packets have arrived, 80 ms for a share near 1 and 20 ms for most packets.
    [[nodiscard]] int64_t Quantile(double share) const;

  private:
    static constexpr int64_t kBin = 240;  // 5 ms
    static constexpr size_t kBins = 420;  // the last one holds everything from 2095 ms on

    std::array<float, kBins> m_histogram{};  // sums up to 1
    WindowMinimum m_base;
    std::optional<int64_t> m_newest;  // unwrapped timestamp of the last packet
    int64_t m_packets = 0;
};

}  // namespace aiplc::receiver

#endif
