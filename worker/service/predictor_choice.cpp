// SPDX-License-Identifier: BSD-2-Clause

#include "worker/service/predictor_choice.h"

#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "src/adapter/protocol.h"
#include "src/platform/platform.h"
#include "worker/model/model_path.h"
#include "worker/predictor/predictor_factory.h"

namespace aiplc::worker {

namespace {

class NoPredictor : public Predictor {
  public:
    int32_t Predict(std::span<const int16_t, kWindowSamples> /*window*/,
                    std::span<int16_t, kWindowSamples> /*out*/) noexcept override {
        return kNoModel;
    }
};

std::string OwnFolder() {
    char path[4096] = {};
    const std::string_view executable(path, platform::ExecutablePath(path, sizeof path));
    return std::string(executable.substr(0, executable.rfind(platform::kPathSeparator) + 1));
}

}  // namespace

std::unique_ptr<Predictor> ChoosePredictor() {
    const std::string path = ModelPath(OwnFolder());
    if (path.empty()) return MakePredictor(nullptr);
    std::string fault;
    std::shared_ptr<const Model> model = Model::Load(path, fault);
    if (model) return MakePredictor(std::move(model));
    std::fprintf(stderr,
                 "%s: %s. All requests are refused and the codec conceals, until a worker is "
                 "started with a model beside it or in %s\n",
                 protocol::kWorkerExecutable, fault.c_str(), kModelVariable);
    return std::make_unique<NoPredictor>();
}

}  // namespace aiplc::worker
