// SPDX-License-Identifier: BSD-2-Clause

#include <benchmark/benchmark.h>
#include <opus.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/pace.h"

namespace {

// Of each benchmark's repetitions the medians alone, at the end and in order, since all are
// measured mixed with each other; the file of all figures has the rest. Says meanwhile what is
// done.
class Medians : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &context) override { return m_shown->ReportContext(context); }
    void ReportRuns(const std::vector<Run> &runs) override {
        std::ranges::copy_if(runs, std::back_inserter(m_runs), [](const Run &run) {
            return run.run_type == Run::RT_Iteration || run.aggregate_name == "median";
        });
        if (!runs.empty()) std::fprintf(stderr, "done: %s\n", runs[0].run_name.str().c_str());
    }
    void Finalize() override {
        std::ranges::stable_sort(m_runs, {}, &Run::family_index);
        m_shown->ReportRuns(m_runs);
        m_shown->Finalize();
    }

  private:
    std::unique_ptr<BenchmarkReporter> m_shown{benchmark::CreateDefaultDisplayReporter()};
    std::vector<Run> m_runs;
};

int Run(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::AddCustomContext("codec", opus_get_version_string());
    benchmark::AddCustomContext("paced_ticks", std::to_string(aiplc::bench::PacedTicks()));
    aiplc::bench::RegisterFrames();
    aiplc::bench::RegisterKernels();
    aiplc::bench::RegisterModel();
    aiplc::bench::RegisterRoundTrips();
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
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
