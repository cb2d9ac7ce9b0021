// SPDX-License-Identifier: BSD-2-Clause
//
// The model alone, without any process around it.

#include <memory>
#include <string>

#include "bench/benchmarks.h"
#include "bench/durations.h"
#include "bench/pace.h"
#include "bench/registration.h"
#include "bench/windows.h"
#include "worker/network/neural.h"

namespace aiplc::bench {

namespace {

constexpr int64_t kPredictions = 2000;

void MeasureModel(benchmark::State &state, Rhythm rhythm) {
    const std::vector<Window> windows = LoadWindows();
    const auto neural = std::make_unique<worker::Neural>(LoadModel());
    const DenormalsFlushed denormals;
    Window out{};
    (void)neural->Predict(windows[0], out);
    Pace pace(rhythm);
    Durations times(state.max_iterations);
    size_t next = 0;
    for ([[maybe_unused]] auto iteration : state) {
        pace.Wait();
        const int64_t begin = Nanoseconds();
        (void)neural->Predict(windows[next++ % windows.size()], out);
        const int64_t took = Nanoseconds() - begin;
        times.Add(took);
        state.SetIterationTime(static_cast<double>(took) * 1e-9);
    }
    times.Report(state);
}

}  // namespace

void RegisterModel() {
    for (const Rhythm rhythm : {Rhythm::backToBack, Rhythm::paced}) {
        Register(std::string("worker/model/") + NameOf(rhythm),
                 rhythm == Rhythm::paced ? PacedTicks() : kPredictions,
                 [rhythm](benchmark::State &state) { MeasureModel(state, rhythm); });
    }
}

}  // namespace aiplc::bench
