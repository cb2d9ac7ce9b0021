// SPDX-License-Identifier: BSD-2-Clause

#include "bench/registration.h"

#include <exception>
#include <utility>

namespace aiplc::bench {

void Register(const std::string &name, int64_t iterations,
              std::function<void(benchmark::State &)> run, int repetitions) {
    const auto guarded = [run = std::move(run)](benchmark::State &state) {
        try {
            run(state);
        } catch (const std::exception &error) {
            state.SkipWithError(error.what());
        }
    };
#if defined(__clang_analyzer__)  // would take what the list of benchmarks owns for lost
    (void)name, (void)iterations, (void)guarded, (void)repetitions;
#else
    benchmark::RegisterBenchmark(name.c_str(), guarded)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond)
        ->Iterations(iterations)
        ->Repetitions(repetitions)
        ->DisplayAggregatesOnly(repetitions > 1);
#endif
}

}  // namespace aiplc::bench
