// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_RECEIVER_ARRIVAL_JITTER_H
#define AIPLC_RECEIVER_ARRIVAL_JITTER_H

#include <cmath>
#include <cstdint>
#include <optional>

namespace aiplc::receiver {

// The interarrival jitter of RFC 3550 6.4.1: how much the spacing of packets changes on the way,
// smoothed over sixteen packets.
class ArrivalJitter {
  public:
    // arrivalUs: any steady clock; timestamp: 48 kHz.
    void Add(int64_t arrivalUs, uint32_t timestamp) {
        const double arrival = static_cast<double>(arrivalUs) * 0.048;
        if (m_arrival) {
            const double change =
                arrival - *m_arrival -
                static_cast<double>(static_cast<int32_t>(timestamp - m_timestamp));
            m_jitter += (std::abs(change) - m_jitter) / 16;
        }
        m_arrival = arrival;
        m_timestamp = timestamp;
    }
    double Seconds() const { return m_jitter / 48000; }

  private:
    std::optional<double> m_arrival;  // 48 kHz
    uint32_t m_timestamp = 0;
    double m_jitter = 0;  // 48 kHz samples
};

}  // namespace aiplc::receiver

#endif
