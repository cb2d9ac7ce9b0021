// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_LOUD_WORKER_H
#define AIPLC_TESTS_LOUD_WORKER_H

#include <algorithm>
#include <chrono>
#include <thread>

#include "tests/support/child_process.h"
#include "worker/service/service.h"

namespace aiplc::worker {

// A process that runs the worker's own protocol loop with a predictor whose frames are loud, and
// ready after so many milliseconds, but for the first request, which makes the worker ready.
class LoudWorker : public platform::Child {
  public:
    explicit LoudWorker(int ms = 0)
        : Child([ms](platform::Line host) {
              platform::JoinAsServer();
              Loud predictor(ms);
              Service service(predictor);
              const bool isOpen = service.Open();
              host.Tell();
              return isOpen ? service.Run() : 1;
          }) {}

  private:
    class Loud : public Predictor {
      public:
        explicit Loud(int ms) : m_ms(ms) {}
        int32_t Predict(std::span<const int16_t, kWindowSamples>,
                        std::span<int16_t, kWindowSamples> out) noexcept override {
            if (m_count++ > 0) std::this_thread::sleep_for(std::chrono::milliseconds(m_ms));
            std::ranges::fill(out, int16_t{1000});
            return 0;
        }

      private:
        int m_ms;
        int m_count = 0;
    };
};

}  // namespace aiplc::worker

#endif
