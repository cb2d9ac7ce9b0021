// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRAINING_RANDOM_H
#define AIPLC_TRAINING_RANDOM_H

#include <cstdint>
#include <initializer_list>
#include <random>

namespace aiplc::training {

// Draws that are the same on every machine for one seed, which the standard distributions are not.
class Random {
  public:
    explicit Random(std::initializer_list<uint32_t> seed) {
        std::seed_seq sequence(seed);
        m_engine.seed(sequence);
    }

    uint64_t Bits() { return m_engine(); }
    // In [low, high).
    double Uniform(double low, double high) {
        return low + (high - low) * static_cast<double>(m_engine() >> 11) * 0x1p-53;
    }
    // In [low, high], both included.
    int Integer(int low, int high) {
        return low + static_cast<int>(m_engine() % static_cast<uint64_t>(high - low + 1));
    }
    bool Chance(double probability) { return Uniform(0, 1) < probability; }

  private:
    std::mt19937_64 m_engine;
};

}  // namespace aiplc::training

#endif
