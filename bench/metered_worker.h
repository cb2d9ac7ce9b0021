// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_METERED_WORKER_H
#define AIPLC_BENCH_METERED_WORKER_H

#include <aiplc/adapter.h>

#include <memory>

#include "bench/metered_network.h"
#include "bench/peer.h"

namespace aiplc::bench {

// The worker's own protocol loop with the shipped network in another process.
class MeteredWorker {
  public:
    MeteredWorker();  // throws std::runtime_error
    ~MeteredWorker();
    MeteredWorker(const MeteredWorker &) = delete;
    MeteredWorker &operator=(const MeteredWorker &) = delete;

    AiplcAdapter &Adapter() { return *m_adapter; }
    const Account &Last() const { return *m_account; }

  private:
    SharedAccount m_account;
    std::unique_ptr<Peer> m_peer;
    std::unique_ptr<AiplcAdapter> m_adapter;
};

}  // namespace aiplc::bench

#endif
