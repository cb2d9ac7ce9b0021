// SPDX-License-Identifier: BSD-2-Clause

#include "bench/instant_worker.h"

#include <algorithm>
#include <stdexcept>

#include "src/platform/platform.h"
#include "worker/service/service.h"

namespace aiplc::bench {

namespace {

class Echo : public worker::Predictor {
  public:
    int32_t Predict(std::span<const int16_t, worker::kWindowSamples> window,
                    std::span<int16_t, worker::kWindowSamples> out) noexcept override {
        std::ranges::copy(window, out.begin());
        return 0;
    }
};

void Serve() {
    platform::JoinAsServer();
    Echo echo;
    worker::Service service(echo);
    if (service.Open()) (void)service.Run();
}

}  // namespace

InstantWorker::InstantWorker() {
    UseNewNamespace();
    m_peer = std::make_unique<Peer>(Serve);
    m_adapter = std::make_unique<AiplcAdapter>();
    // Create would start the worker's executable instead.
    m_adapter->workerRunning = m_adapter->ipcReady;
    if (m_adapter->Init() != 0) throw std::runtime_error("the instant worker did not start");
}

InstantWorker::~InstantWorker() {
    (void)m_adapter->Delete();
}

}  // namespace aiplc::bench
