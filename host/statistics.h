// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_STATISTICS_H
#define AIPLC_HOST_STATISTICS_H

#include <aiplc/receiver.h>

#include <cstddef>
#include <vector>

namespace aiplc::host {

// Counters of one receiver since its construction. The receiver fills in structSize.
using Statistics = AiPlcReceiverStatistics;

// Times of the last kRemembered requests, so that a call of any length needs no more memory than
// the first hours of it.
class RequestTimes {
  public:
    static constexpr size_t kRemembered = 65536;

    void Add(float milliseconds);

    // The smallest time that at least the given share (0 to 1) of the remembered requests did not
    // exceed (nearest rank), in ms; 0 without requests.
    float Quantile(double share) const;
    // Of all requests.
    float Longest() const { return m_longest; }

  private:
    std::vector<float> m_times;  // a ring once it is full
    size_t m_next = 0;
    float m_longest = 0;
};

}  // namespace aiplc::host

#endif
