// SPDX-License-Identifier: BSD-2-Clause

#include "worker/predictor/predictor_factory.h"

#include <map>
#include <mutex>
#include <utility>

#include "worker/classical/autoregressive.h"
#include "worker/classical/outage.h"
#include "worker/network/neural.h"

namespace aiplc::worker {

std::unique_ptr<Predictor> MakePredictor(std::shared_ptr<const Model> model) {
    if (model == nullptr) return std::make_unique<Outage>(std::make_unique<Autoregressive>());
    return std::make_unique<Outage>(std::make_unique<Neural>(std::move(model)));
}

std::shared_ptr<const Model> SharedModel(const std::string &path, std::string &fault) {
    static std::mutex lock;
    static std::map<std::string, std::weak_ptr<const Model>> loaded;
    const std::lock_guard guard(lock);
    std::weak_ptr<const Model> &place = loaded[path];
    std::shared_ptr<const Model> model = place.lock();
    if (model != nullptr) return model;
    model = Model::Load(path, fault);
    place = model;
    return model;
}

}  // namespace aiplc::worker
