// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_LOSING_CALL_H
#define AIPLC_TESTS_LOSING_CALL_H

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string>

#include "tests/support/scripted_host.h"

// A call at either rate that loses packets in bursts, with sequence numbers that begin short of
// their wrap.
class LosingCall {
  public:
    LosingCall(bool is48K, bool useWorker, unsigned seed)
        : m_host(is48K, useWorker ? 1 : 0),
          m_random(seed),
          m_samples(is48K ? 960 : 320),
          m_lossRate(0.01 + 0.04 * (seed % 8)) {
        m_host.conceal = [this](AiPlcDecodeRequest &request) {
            std::ranges::copy(Noise(), request.pcmOut);
            request.pcmOutSamples = static_cast<uint16_t>(m_samples);
            return 0;
        };
    }
    bool UsesWorker() const { return m_host.channel.sEnableAIPLC == 1; }

    // Throws std::runtime_error when a call of the library fails or gives no frame.
    void Play(int frames) {
        for (int i = 0; i < frames; ++i, ++m_number) {
            // A burst goes on in half of the cases.
            const double rate = m_isLost ? 0.5 : m_lossRate;
            m_isLost = m_number > kFirst + 12 && std::bernoulli_distribution(rate)(m_random);
            const int32_t result =
                m_isLost ? m_host.Lose() : m_host.Receive({{m_number % 65536, Noise()}});
            const size_t heard = m_host.Take().size();
            if (result != 0 || (heard != m_samples && m_number > kFirst))
                throw std::runtime_error("frame " + std::to_string(m_number - kFirst) +
                                         ": result " + std::to_string(result) + ", " +
                                         std::to_string(heard) + " samples");
        }
    }

  private:
    static constexpr int kFirst = 65000;

    Samples Noise() {
        Samples samples(m_samples);
        for (int16_t &s : samples)
            s = static_cast<int16_t>(static_cast<int>(m_random() % 4001) - 2000);
        return samples;
    }

    ScriptedHost m_host;
    std::minstd_rand m_random;
    size_t m_samples;
    double m_lossRate;
    bool m_isLost = false;
    int m_number = kFirst;
};

#endif
