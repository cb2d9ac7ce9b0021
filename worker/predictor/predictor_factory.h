// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_PREDICTOR_FACTORY_H
#define AIPLC_WORKER_PREDICTOR_FACTORY_H

#include <memory>
#include <string>

#include "worker/model/model_file.h"
#include "worker/window/predictor.h"

namespace aiplc::worker {

// The predictor as it is shipped: the network with these weights, or the autoregressive predictor
// without any. Each has a state of its own; the weights are shared. Throws std::bad_alloc.
std::unique_ptr<Predictor> MakePredictor(std::shared_ptr<const Model> model);

// The weights in this file, loaded once for all that hold them. Null with a fault as from
// Model::Load. Any thread. Throws std::bad_alloc.
std::shared_ptr<const Model> SharedModel(const std::string &path, std::string &fault);

}  // namespace aiplc::worker

#endif
