// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_INSTANT_WORKER_H
#define AIPLC_BENCH_INSTANT_WORKER_H

#include <aiplc/adapter.h>

#include <memory>

#include "bench/peer.h"

namespace aiplc::bench {

// The worker's own protocol loop in another process, with a predictor that returns the window as it
// is: what a request costs without its model.
class InstantWorker {
  public:
    InstantWorker();  // throws std::runtime_error
    ~InstantWorker();
    InstantWorker(const InstantWorker &) = delete;
    InstantWorker &operator=(const InstantWorker &) = delete;

    AiplcAdapter &Adapter() { return *m_adapter; }

  private:
    std::unique_ptr<Peer> m_peer;
    std::unique_ptr<AiplcAdapter> m_adapter;
};

}  // namespace aiplc::bench

#endif
