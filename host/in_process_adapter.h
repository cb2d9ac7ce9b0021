// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_IN_PROCESS_ADAPTER_H
#define AIPLC_HOST_IN_PROCESS_ADAPTER_H

#include <aiplc/adapter.h>

#include <memory>
#include <string>

#include "worker/window/predictor.h"

namespace aiplc::host {

// Runs a predictor on the caller's thread, in place of a worker process: no time limit, no other
// process, and the same window gives the same prediction as in the worker, bit for bit. One
// adapter, one channel.
class InProcessAdapter : public AiplcAdapterInterface {
  public:
    explicit InProcessAdapter(std::unique_ptr<worker::Predictor> predictor);
    ~InProcessAdapter() override;

    int Create() override { return 0; }
    int Init() override { return 0; }
    int Delete() override { return 0; }
    // The predictor's result; timeoutMs is not read.
    int Process(InoutDetail &record, int timeoutMs) override;

  private:
    std::unique_ptr<worker::Predictor> m_predictor;
};

// modelPath: of the network's weights; empty: ModelLocation(). Throws ModelFault.
std::unique_ptr<AiplcAdapterInterface> MakeInProcessAdapter(const std::string &modelPath);

}  // namespace aiplc::host

#endif
