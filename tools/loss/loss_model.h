// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_LOSS_MODEL_H
#define AIPLC_TOOLS_LOSS_MODEL_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace aiplc::tools {

// Simulated packet loss: one verdict per packet, in order.
class LossModel {
  public:
    virtual ~LossModel() = default;
    // Whether the next packet is lost.
    virtual bool NextLost() = 0;
};

// Two-state Markov chain after Gilbert, "Capacity of a burst-noise channel", Bell Syst. Tech. J.
// 39, 1960, and Elliott, ibid. 42, 1963. The good state loses nothing, the bad state everything.
//
// State: good -> bad with probability p, bad -> good with r, once per packet. A burst has 1 / r
// packets on average, and p / (p + r) of all packets are lost; the first state is drawn from that
// distribution. The same seed gives the same losses on every machine.
class GilbertElliott final : public LossModel {
  public:
    // lossRate: 0 to below 1. meanBurst: packets, >= 1, at least lossRate / (1 - lossRate);
    // 0 = losses independent of each other. Throws UsageError on anything else.
    GilbertElliott(double lossRate, double meanBurst, uint64_t seed);

    bool NextLost() override;

  private:
    double Uniform();

    std::mt19937_64 m_random;
    double m_goodToBad;
    double m_badToGood;
    double m_lossRate;
    bool m_started = false;
    bool m_bad = false;
};

// Losses as written down: "0 0 1 0", 1 = lost, white space is free. Starts over at its end.
class LossTrace final : public LossModel {
  public:
    // Throws Failure naming the file, line and column of what is no 0 or 1, or an empty trace.
    LossTrace(const std::string &text, const std::string &fileName);

    static LossTrace Load(const std::string &fileName);

    bool NextLost() override;

  private:
    std::vector<bool> m_lost;
    size_t m_next = 0;
};

}  // namespace aiplc::tools

#endif
