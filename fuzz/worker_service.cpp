// SPDX-License-Identifier: BSD-2-Clause
//
// A host that sends any messages in any order with any audio: the worker comes to an end, gives the
// mutex back, and what it predicts is audio.

#include "worker/service/service.h"

#include "fuzz/arbitrary.h"
#include "fuzz/hostile_platform.h"
#include "worker/classical/autoregressive.h"

namespace {

using aiplc::fuzz::Require;
using aiplc::worker::kWindowSamples;

class Checked : public aiplc::worker::Predictor {
  public:
    int32_t Predict(std::span<const int16_t, kWindowSamples> window,
                    std::span<int16_t, kWindowSamples> out) noexcept override {
        const int32_t result = m_predictor.Predict(window, out);
        Require(result == 0);
        for (const float sample : m_predictor.Filled())
            Require(sample >= -40000.0F && sample <= 40000.0F);
        return result;
    }

  private:
    aiplc::worker::Autoregressive m_predictor;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    const aiplc::fuzz::HostilePlatform platform(data);
    Checked predictor;
    aiplc::worker::Service service(predictor);
    if (service.Open()) (void)service.Run();
    return 0;
}
