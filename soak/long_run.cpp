// SPDX-License-Identifier: BSD-2-Clause
//
// long_run [HOURS]: calls of three minutes one after the other, at full speed with the real worker,
// until HOURS (24) of audio are played. Prints memory and descriptors of the host each hour of
// audio and fails when either grows after the first hour, or the first half of a shorter run, or
// when a call fails.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tests/support/losing_call.h"
#include "tests/support/open_descriptors.h"

namespace {

constexpr int kFrames = 3 * 60 * 50;
constexpr int kCallsPerHour = 20;
// That the allocator may settle in after the first hour. Address sanitizer keeps what was freed; it
// finds leaks by itself.
#if defined(__SANITIZE_ADDRESS__)
constexpr long kRoomKiB = 1 << 20;
#else
constexpr long kRoomKiB = 512;
#endif

struct Holdings {
    long residentKiB = 0;
    long descriptors = 0;
};

Holdings Now() {
    Holdings now;
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    now.residentKiB = pages * 4;
    now.descriptors = OpenDescriptors();
    return now;
}

// 0, or 1 with what is wrong on standard error.
int Run(double hours) {
    const auto begin = std::chrono::steady_clock::now();
    const int calls = std::max(2, static_cast<int>(hours * kCallsPerHour));
    Holdings first;
    for (int i = 0; i < calls; ++i) {
        LosingCall call(i % 2 == 1, true, static_cast<unsigned>(i));
        if (!call.UsesWorker()) throw std::runtime_error("the worker did not start");
        call.Play(kFrames);
        const bool isFirst = i == std::min(calls / 2, kCallsPerHour) - 1;
        if (isFirst) first = Now();
        if (i != 0 && !isFirst && i != calls - 1 && (i + 1) % kCallsPerHour != 0) continue;
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        const Holdings now = Now();
        std::printf("%4d calls, %7lld frames, %6ld KiB resident, %ld descriptors, %5.0f s\n", i + 1,
                    static_cast<long long>(i + 1) * kFrames, now.residentKiB, now.descriptors,
                    took.count());
        std::fflush(stdout);
    }
    const Holdings last = Now();
    if (last.residentKiB <= first.residentKiB + kRoomKiB && last.descriptors <= first.descriptors)
        return 0;
    std::fprintf(stderr,
                 "long_run: memory grew from %ld to %ld KiB, or descriptors from %ld to %ld\n",
                 first.residentKiB, last.residentKiB, first.descriptors, last.descriptors);
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    char *end = nullptr;
    const double hours = argc > 1 ? std::strtod(argv[1], &end) : 24;
    if (argc > 2 || (end != nullptr && *end != '\0') || !(hours > 0)) {
        std::fprintf(stderr, "long_run: one argument at most: hours of audio, more than 0\n");
        return 2;
    }
    setenv("AIPLC_NAMESPACE", ("long-run-" + std::to_string(getpid())).c_str(), 0);
    try {
        return Run(hours);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "long_run: %s\n", error.what());
        return 1;
    }
}
