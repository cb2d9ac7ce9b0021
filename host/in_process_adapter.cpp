// SPDX-License-Identifier: BSD-2-Clause

#include "host/in_process_adapter.h"

#include <array>
#include <cstring>
#include <utility>

#include "host/model_location.h"
#include "host/receiver.h"
#include "worker/predictor/predictor_factory.h"
#include "worker/window/denormals.h"

namespace aiplc::host {

InProcessAdapter::InProcessAdapter(std::unique_ptr<worker::Predictor> predictor)
    : m_predictor(std::move(predictor)) {}

InProcessAdapter::~InProcessAdapter() = default;

int InProcessAdapter::Process(InoutDetail &record, int /*timeoutMs*/) {
    const worker::DenormalsAreZero mode;
    // The record is bytes, without the alignment of samples.
    std::array<int16_t, worker::kWindowSamples> window{};
    std::array<int16_t, worker::kWindowSamples> prediction{};
    static_assert(sizeof record.AudioIn == sizeof window);
    std::memcpy(window.data(), record.AudioIn, sizeof window);
    const int32_t result = m_predictor->Predict(window, prediction);
    if (result == 0) std::memcpy(record.AudioOut, prediction.data(), sizeof prediction);
    return result;
}

std::unique_ptr<AiplcAdapterInterface> MakeInProcessAdapter(const std::string &modelPath) {
    const std::string path = modelPath.empty() ? ModelLocation() : modelPath;
    std::shared_ptr<const worker::Model> model;
    if (!path.empty()) {
        std::string fault;
        model = worker::SharedModel(path, fault);
        if (model == nullptr) throw ModelFault(fault);
    }
    return std::make_unique<InProcessAdapter>(worker::MakePredictor(std::move(model)));
}

}  // namespace aiplc::host
