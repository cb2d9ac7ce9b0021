// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_METERED_NETWORK_H
#define AIPLC_BENCH_METERED_NETWORK_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "worker/network/neural.h"

namespace aiplc::bench {

// Cost of a network's last prediction. Allocations: of its thread since the one before,
// those between them included; -1 where they cannot be counted.
struct Account {
    std::atomic<int64_t> modelNs = 0;
    std::atomic<int64_t> allocations = 0;
};

// In memory that this process shares with those that it forks.
class SharedAccount {
  public:
    SharedAccount();  // throws std::bad_alloc
    Account &operator*() const { return *m_account; }
    const Account *operator->() const { return m_account.get(); }

  private:
    struct Unmap {
        void operator()(Account *account) const;
    };
    std::unique_ptr<Account, Unmap> m_account;
};

// The shipped network, keeping account. Throws std::runtime_error without its weights.
class MeteredNetwork : public worker::Predictor {
  public:
    explicit MeteredNetwork(Account &account);

    int32_t Predict(std::span<const int16_t, worker::kWindowSamples> window,
                    std::span<int16_t, worker::kWindowSamples> out) noexcept override;

  private:
    Account &m_account;
    worker::Neural m_neural;
    int64_t m_allocations = 0;  // before the last prediction
};

}  // namespace aiplc::bench

#endif
