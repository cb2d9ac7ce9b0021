// SPDX-License-Identifier: BSD-2-Clause

#include <benchmark/benchmark.h>
#include <opus.h>

#include <cstdio>
#include <exception>
#include <string>

#include "benchmarks.h"
#include "pace.h"

namespace {

int Run(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::AddCustomContext("codec", opus_get_version_string());
    benchmark::AddCustomContext("paced_ticks", std::to_string(aiplc::bench::PacedTicks()));
    aiplc::bench::RegisterFrames();
    aiplc::bench::RegisterKernels();
    aiplc::bench::RegisterModel();
    aiplc::bench::RegisterRoundTrips();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "aiplc_bench: %s\n", error.what());
        return 1;
    }
}
