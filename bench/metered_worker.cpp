// SPDX-License-Identifier: BSD-2-Clause

#include "bench/metered_worker.h"

#include <stdexcept>

#include "src/platform/platform.h"
#include "worker/service/service.h"

namespace aiplc::bench {

namespace {

void Serve(Account &account) {
    platform::JoinAsServer();
    MeteredNetwork network(account);
    worker::Service service(network);
    if (!service.Open()) return;
    platform::AskForRealTime();
    (void)service.Run();
}

}  // namespace

MeteredWorker::MeteredWorker() {
    UseNewNamespace();
    m_peer = std::make_unique<Peer>([this] { Serve(*m_account); });
    m_adapter = std::make_unique<AiplcAdapter>();
    // Create would start the worker's executable instead.
    m_adapter->workerRunning = m_adapter->ipcReady;
    if (m_adapter->Init() != 0) throw std::runtime_error("the metered worker did not start");
}

MeteredWorker::~MeteredWorker() {
    (void)m_adapter->Delete();
}

}  // namespace aiplc::bench
