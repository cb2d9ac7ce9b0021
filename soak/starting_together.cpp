// SPDX-License-Identifier: BSD-2-Clause
//
// starting_together [HOSTS [RUNS [BUSY]]]: HOSTS (2) processes set up a channel with the worker in
// one namespace, each some milliseconds after the one before, RUNS (60) times for each of several
// such offsets, beside BUSY (4) processes that use up all the time they get. Prints how often a
// host was left without the worker: its set-up failed, or no request of its first second was
// answered once all were set up. Fails when that is so in more than one run of sixty.

#include <aiplc/adapter.h>
#include <sys/prctl.h>

#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <string>

#include "tests/support/child_process.h"

namespace {

using aiplc::platform::Child;
using aiplc::platform::Line;

constexpr int kOffsetsMs[] = {0, 10, 30, 60, 100};
constexpr int kRequests = 50;  // 20 ms apart
constexpr uint32_t kFrameUs = 20'000;

// Returns 0 when the host had the worker in the end.
int BeHost(Line line, int delayUs) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    line.Tell();
    usleep(static_cast<useconds_t>(delayUs));
    StAiPlcChannel block{};
    StAiPlcChannel *channel = nullptr;
    if (AiPlcCreate(&channel, &block) != 0) return 1;
    bool isServed = AiPlcAsyncInit(channel, 1) == 0;
    // The others are set up too.
    if (!line.Tell() || !line.Await()) return 1;
    const bool isSetUp = isServed;
    const auto in = std::make_unique<int16_t[]>(AIPLC_WINDOW_SAMPLES);
    const auto out = std::make_unique<int16_t[]>(AIPLC_WINDOW_SAMPLES);
    for (int i = 0; isSetUp && i < kRequests; ++i) {
        isServed = AiPlcAsyncInfer(channel, in.get(), out.get(), 1) == 0;
        if (isServed) break;
        usleep(kFrameUs);
    }
    // One that ends asks the worker to quit: the others are to be done before.
    if (!line.Tell() || !line.Await()) return 1;
    (void)AiPlcAsyncDestroy(channel);
    return isServed ? 0 : 1;
}

// How many of the hosts have the worker in the end.
int Served(int count, int offsetMs) {
    static int runs = 0;
    const std::string space = "together-" + std::to_string(getpid()) + "-" + std::to_string(++runs);
    setenv("AIPLC_NAMESPACE", space.c_str(), 1);
    std::list<Child> hosts;
    for (int i = 0; i < count; ++i)
        hosts.emplace_back([&](Line line) { return BeHost(line, 1000 * offsetMs * i); });
    for (int meeting = 0; meeting < 2; ++meeting) {
        for (const Child &host : hosts)
            (void)host.line.Await();
        for (const Child &host : hosts)
            (void)host.line.Tell();
    }
    int served = 0;
    for (Child &host : hosts)
        served += host.Join() == 0 ? 1 : 0;
    return served;
}

int Run(int hosts, int runs, int busy) {
    std::list<Child> beside;
    for (int i = 0; i < busy; ++i) {
        beside.emplace_back([](Line line) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            line.Tell();
            for (volatile unsigned turns = 0;;)
                turns = turns + 1;
            return 0;
        });
    }
    std::printf("%d hosts, %d runs for each offset, beside %d busy processes\n", hosts, runs, busy);
    int failures = 0;
    for (const int offsetMs : kOffsetsMs) {
        int lacking = 0;
        int empty = 0;
        for (int i = 0; i < runs; ++i) {
            const int served = Served(hosts, offsetMs);
            lacking += served < hosts ? 1 : 0;
            empty += served == 0 ? 1 : 0;
        }
        failures += lacking;
        std::printf("%4d ms apart: a host without the worker in %d runs, all of them in %d\n",
                    offsetMs, lacking, empty);
        std::fflush(stdout);
    }
    constexpr int kOneOf = 60;
    return failures * kOneOf > runs * static_cast<int>(std::size(kOffsetsMs)) ? 1 : 0;
}

// The how manyth argument, or usual without it; 0 when it is no positive number.
int Argument(int argc, char **argv, int number, int usual) {
    if (argc <= number) return usual;
    char *end = nullptr;
    const long value = std::strtol(argv[number], &end, 10);
    return *end == '\0' && value > 0 && value <= 10'000 ? static_cast<int>(value) : 0;
}

}  // namespace

int main(int argc, char **argv) {
    const int hosts = Argument(argc, argv, 1, 2);
    const int runs = Argument(argc, argv, 2, 60);
    const int busy = Argument(argc, argv, 3, 4);
    if (argc > 4 || hosts == 0 || runs == 0 || busy == 0) {
        std::fprintf(stderr,
                     "starting_together: three arguments at most, hosts, runs and busy processes, "
                     "each a number from 1 on\n");
        return 2;
    }
    return Run(hosts, runs, busy);
}
