// SPDX-License-Identifier: BSD-2-Clause
//
// starting_together [HOSTS [RUNS [BUSY]]]: HOSTS (2) processes set up a channel with the worker in
// one namespace, each some milliseconds after the one before, RUNS (60) times for each of several
// such offsets, beside BUSY (4) processes that use up all the time they get. Prints how often a
// host was left without the worker: its set-up failed, or no request of its first second was
// answered once all were set up. Fails when that is so in more than one run of sixty.

#include <aiplc/adapter.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int kOffsetsMs[] = {0, 10, 30, 60, 100};
constexpr int kRequests = 50;  // 20 ms apart
constexpr uint32_t kFrameUs = 20'000;

[[noreturn]] void BeHost(int line, int delayUs) {
    usleep(static_cast<useconds_t>(delayUs));
    StAiPlcChannel block{};
    StAiPlcChannel *channel = nullptr;
    if (AiPlcCreate(&channel, &block) != 0) _exit(2);
    bool isServed = AiPlcAsyncInit(channel, 1) == 0;
    // The others are set up too.
    char mark = isServed ? '1' : '0';
    if (write(line, &mark, 1) != 1 || read(line, &mark, 1) != 1) _exit(2);
    if (isServed) {
        const auto in = std::make_unique<int16_t[]>(AIPLC_WINDOW_SAMPLES);
        const auto out = std::make_unique<int16_t[]>(AIPLC_WINDOW_SAMPLES);
        isServed = false;
        for (int i = 0; i < kRequests && !isServed; ++i) {
            isServed = AiPlcAsyncInfer(channel, in.get(), out.get(), 1) == 0;
            if (!isServed) usleep(kFrameUs);
        }
    }
    // One that ends asks the worker to quit: the others are to be done before.
    mark = isServed ? '1' : '0';
    if (write(line, &mark, 1) != 1 || read(line, &mark, 1) != 1) _exit(2);
    (void)AiPlcAsyncDestroy(channel);
    _exit(0);
}

struct Host {
    pid_t process = -1;
    int line = -1;
};

Host Start(int delayUs) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::runtime_error("no socket pair");
    const pid_t process = fork();
    if (process < 0) throw std::runtime_error("no process");
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        BeHost(ends[1], delayUs);
    }
    close(ends[1]);
    return {process, ends[0]};
}

// Waits for the mark of each host, then lets all go on. How many said that they have the worker.
int Gather(const std::vector<Host> &hosts) {
    int count = 0;
    for (const Host &host : hosts) {
        char mark = '0';
        if (read(host.line, &mark, 1) == 1 && mark == '1') ++count;
    }
    for (const Host &host : hosts) {
        if (write(host.line, "!", 1) != 1) throw std::runtime_error("a host has ended");
    }
    return count;
}

// How many of the hosts have the worker in the end.
int Served(int count, int offsetMs) {
    static int runs = 0;
    const std::string space = "together-" + std::to_string(getpid()) + "-" + std::to_string(++runs);
    setenv("AIPLC_NAMESPACE", space.c_str(), 1);
    std::vector<Host> hosts(static_cast<size_t>(count));
    int delayUs = 0;
    for (Host &host : hosts) {
        host = Start(delayUs);
        delayUs += 1000 * offsetMs;
    }
    (void)Gather(hosts);
    const int served = Gather(hosts);
    for (const Host &host : hosts) {
        waitpid(host.process, nullptr, 0);
        close(host.line);
    }
    return served;
}

class BusyProcesses {
  public:
    explicit BusyProcesses(int count) {
        for (int i = 0; i < count; ++i) {
            m_processes.push_back(fork());
            if (m_processes.back() != 0) continue;
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (volatile unsigned turns = 0;;)
                turns = turns + 1;
        }
    }
    ~BusyProcesses() {
        for (const pid_t process : m_processes) {
            if (process > 0 && kill(process, SIGKILL) == 0) waitpid(process, nullptr, 0);
        }
    }
    BusyProcesses(const BusyProcesses &) = delete;
    BusyProcesses &operator=(const BusyProcesses &) = delete;

  private:
    std::vector<pid_t> m_processes;
};

int Run(int hosts, int runs, int busy) {
    const BusyProcesses beside(busy);
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
    try {
        return Run(hosts, runs, busy);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "starting_together: %s\n", error.what());
        return 1;
    }
}
