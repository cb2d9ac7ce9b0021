// SPDX-License-Identifier: BSD-2-Clause
//
// Each signal-processing kernel alone, beside the core's peak in turns of the same run.

#include <aiplc/aiplc.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "bench/arithmetic_peak.h"
#include "bench/benchmarks.h"
#include "bench/durations.h"
#include "bench/pace.h"
#include "bench/registration.h"
#include "bench/speech.h"

namespace aiplc::bench {

namespace {

constexpr int kRate = 48000;
constexpr int32_t kLong = AIPLC_FRAME_SAMPLES_48K;
constexpr int32_t kShort = AIPLC_FRAME_SAMPLES_16K;
constexpr int64_t kRounds = 1000;
constexpr int kCallsPerRound = 8;
constexpr int64_t kPeakTurns = 2000;

// One frame's worth of everything that the kernels read and write.
struct Frame {
    std::array<int16_t, kLong> pcm{};
    std::array<int16_t, kLong> other{};
    std::array<float, kLong> samples{};
    std::array<float, kLong> result{};
    std::array<float, kLong + AIPLC_BANK_TAPS> work{};
    std::array<float, AIPLC_LOW_PASS_TAPS_48K> state{};

    Frame() : m_speech(MakeSpeech(kRate, 1)) { Refill(); }
    // The loud middle of a syllable; kernels that work in place would fade it to nothing.
    void Refill() {
        std::copy_n(m_speech.begin() + kRate / 8, kLong, pcm.begin());
        std::copy_n(m_speech.begin() + kRate / 7, kLong, other.begin());
        std::ranges::copy(pcm, samples.begin());
    }

  private:
    std::vector<int16_t> m_speech;
};

struct Kernel {
    const char *name;
    int32_t samples;       // a call
    int64_t multiplyAdds;  // a call; 0: none
    void (*run)(Frame &frame);
};

void Synthesise(Frame &frame) {
    constexpr size_t kBuffer = AIPLC_BAND_SAMPLES + AIPLC_BANK_TAPS / AIPLC_BANDS;
    float *bands[AIPLC_BANDS] = {&frame.work[0], &frame.work[kBuffer], &frame.work[2 * kBuffer]};
    AiPlcThreeBandSynthesisProc(frame.samples.data(), frame.state.data(), bands,
                                frame.result.data(), kLong);
}

// A multiplication in a fade counts as a multiply-add.
const Kernel kKernels[] = {
    {"fir_31_taps", kShort, int64_t{31} * kShort,
     [](Frame &f) { AiPlcFir(f.pcm.data(), f.state.data(), g_aiplcLowPassCoeff16K, kShort, 31); }},
    {"fir_91_taps", kLong, int64_t{91} * kLong,
     [](Frame &f) { AiPlcFir(f.pcm.data(), f.state.data(), g_aiplcLowPassCoeff48K, kLong, 91); }},
    {"three_band_analysis", kLong, int64_t{AIPLC_BANK_TAPS} * kLong,
     [](Frame &f) {
         AiPlcThreeBandAnalysisProc(f.samples.data(), f.state.data(), f.work.data(),
                                    f.result.data(), kLong);
     }},
    {"three_band_synthesis", kLong, int64_t{AIPLC_BANK_TAPS} * kLong, Synthesise},
    {"short_to_float", kLong, 0,
     [](Frame &f) { AiPlcShort2Float(f.pcm.data(), f.result.data(), kLong); }},
    {"float_to_short", kLong, 0,
     [](Frame &f) { AiPlcFloat2Short(f.samples.data(), f.other.data(), kLong); }},
    {"fuse_smooth_320", kShort, int64_t{2} * kShort,
     [](Frame &f) { AiPlcFuseSmooth(f.other.data(), f.pcm.data(), g_aiplcTriangWin16K, kShort); }},
    {"fuse_smooth_960", kLong, int64_t{2} * kLong,
     [](Frame &f) { AiPlcFuseSmooth(f.other.data(), f.pcm.data(), g_aiplcTriangWin48K, kLong); }},
    {"fade_in", kShort, kShort, [](Frame &f) { AiPlc16kFadeIn(f.pcm.data()); }},
    {"fade_out", kShort, kShort, [](Frame &f) { AiPlc16kFadeOut(f.pcm.data()); }},
};

double PeakPerSecond() {
    const int64_t begin = Nanoseconds();
    const int64_t done = MultiplyAndAdd(kPeakTurns);
    return static_cast<double>(done) / static_cast<double>(Nanoseconds() - begin) * 1e9;
}

void RunKernel(benchmark::State &state, const Kernel &kernel) {
    Frame frame;
    Durations calls(state.max_iterations);
    std::vector<double> peaks;
    for ([[maybe_unused]] auto iteration : state) {
        peaks.push_back(PeakPerSecond());
        frame.Refill();
        const int64_t begin = Nanoseconds();
        for (int call = 0; call < kCallsPerRound; ++call) {
            kernel.run(frame);
            benchmark::ClobberMemory();
        }
        const int64_t took = Nanoseconds() - begin;
        calls.Add(took / kCallsPerRound);
        state.SetIterationTime(static_cast<double>(took) * 1e-9 / kCallsPerRound);
    }
    const double seconds = calls.MedianUs() * 1e-6;
    state.counters["p50_us"] = calls.MedianUs();
    state.counters["samples_per_s"] = kernel.samples / seconds;
    if (kernel.multiplyAdds == 0) return;
    const auto multiplyAdds = static_cast<double>(kernel.multiplyAdds);
    const double peak = Median(peaks);
    state.counters["multiply_adds_per_s"] = multiplyAdds / seconds;
    state.counters["peak_per_s"] = peak;
    state.counters["share_of_peak"] = multiplyAdds / seconds / peak;
    state.counters["undisturbed_share"] =
        multiplyAdds / (calls.ShortestUs() * 1e-6) / *std::ranges::max_element(peaks);
}

}  // namespace

void RegisterKernels() {
    for (const Kernel &kernel : kKernels) {
        Register(
            std::string("kernel/") + kernel.name, kRounds,
            [&kernel](benchmark::State &state) { RunKernel(state, kernel); }, kRepetitions);
    }
}

}  // namespace aiplc::bench
