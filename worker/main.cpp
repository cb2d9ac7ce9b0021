// SPDX-License-Identifier: BSD-2-Clause

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "src/adapter/protocol.h"
#include "src/platform/platform.h"
#include "worker/service/predictor_choice.h"
#include "worker/service/service.h"

namespace {

using aiplc::worker::kWindowSamples;

// Loads the model with the first prediction, which makes the worker ready. That may take seconds on
// a busy machine, while a host waits two for the first prediction of a worker and five until it is
// ready.
class LoadedWhenAsked : public aiplc::worker::Predictor {
  public:
    int32_t Predict(std::span<const int16_t, kWindowSamples> window,
                    std::span<int16_t, kWindowSamples> out) noexcept override {
        if (m_predictor == nullptr) {
            m_predictor = aiplc::worker::ChoosePredictor();
            aiplc::platform::AskForRealTime();
        }
        return m_predictor->Predict(window, out);
    }
    void ForgetLast() noexcept override { m_predictor->ForgetLast(); }
    void Report() const override {
        if (m_predictor != nullptr) m_predictor->Report();
    }

  private:
    std::unique_ptr<aiplc::worker::Predictor> m_predictor;
};

int Serve() {
    LoadedWhenAsked predictor;
    aiplc::worker::Service service(predictor);
    if (!service.Open()) return 1;
    const int result = service.Run();
    predictor.Report();
    return result;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc > 1) {
        std::fprintf(stderr,
                     "%s: unexpected argument \"%s\": this is the prediction worker, which "
                     "libxanu_audiocore_aiplc starts without arguments\n",
                     aiplc::protocol::kWorkerExecutable, argv[1]);
        return 2;
    }
    aiplc::platform::JoinAsServer();
#if defined(SIGHUP)
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
#endif
    // The thread that watches the hosts may still run: end without taking statics from under it.
    std::_Exit(Serve());
}
