// SPDX-License-Identifier: BSD-2-Clause
//
// The cost of a call: plays calls at 10 % loss by each predictor and prints the processor time of
// host and worker a second of call, how many such calls one core carries, and the memory of one
// more.
//     channels [SECONDS] [CALLS]

#include <aiplc/receiver.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/speech.h"
#include "host/sender.h"

namespace {

namespace fs = std::filesystem;
using aiplc::host::RtpPacket;

constexpr int kRate = 16000;
constexpr double kLoss = 0.1;

struct Destroyer {
    void operator()(AiPlcReceiver *receiver) const { AiPlcReceiverDestroy(receiver); }
};
using Receiver = std::unique_ptr<AiPlcReceiver, Destroyer>;

Receiver Make(AiPlcPredictor predictor) {
    AiPlcReceiverOptions options;
    AiPlcReceiverDefaults(&options);
    options.sampleRate = kRate;
    options.predictor = predictor;
    AiPlcReceiver *receiver = nullptr;
    const int32_t result = AiPlcReceiverCreate(&receiver, &options);
    if (result != AIPLC_RECEIVER_OK) throw std::runtime_error(AiPlcReceiverResultText(result));
    return Receiver(receiver);
}

double OwnSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Of all workers on this machine: no other calls may run meanwhile.
double WorkerSeconds() {
    double ticks = 0;
    for (const fs::directory_entry &process : fs::directory_iterator("/proc")) {
        std::ifstream file(process.path() / "stat");
        std::string text;
        std::getline(file, text);
        // The name, in brackets, is cut after 15 letters; behind it the times are fields 12 and 13.
        const size_t end = text.rfind(')');
        if (end == std::string::npos || text.find("(xanu_audio_aipl") == std::string::npos)
            continue;
        std::istringstream fields(text.substr(end + 1));
        std::string field;
        for (int i = 0; i < 11; ++i)
            fields >> field;
        double user = 0;
        double system = 0;
        fields >> user >> system;
        ticks += user + system;
    }
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Resident memory of this process, in MB.
double ResidentMb() {
    std::ifstream file("/proc/self/statm");
    double pages = 0;
    file >> pages >> pages;
    return pages * static_cast<double>(sysconf(_SC_PAGESIZE)) * 1e-6;
}

void Measure(const char *name, AiPlcPredictor predictor, const std::vector<RtpPacket> &packets,
             int calls) {
    std::vector<Receiver> receivers;
    receivers.push_back(Make(predictor));
    const double before = ResidentMb();
    for (int i = 1; i < calls; ++i)
        receivers.push_back(Make(predictor));
    std::vector<int16_t> samples(kRate / 50);
    std::minstd_rand random(1);
    std::bernoulli_distribution isLost(kLoss);
    const double own = OwnSeconds();
    const bool hasWorkers = predictor == AIPLC_PREDICTOR_WORKER;
    const double worker = hasWorkers ? WorkerSeconds() : 0;
    for (const RtpPacket &packet : packets) {
        for (const Receiver &receiver : receivers) {
            if (!isLost(random))
                AiPlcReceiverPush(receiver.get(), packet.payload.data(), packet.payload.size(),
                                  packet.sequenceNumber, packet.timestamp, -1);
            AiPlcReceiverPull(receiver.get(), samples.data(), samples.size());
        }
    }
    const double seconds = 0.02 * static_cast<double>(packets.size()) * calls;
    const double hostMs = 1e3 * (OwnSeconds() - own) / seconds;
    const double workerMs = hasWorkers ? 1e3 * (WorkerSeconds() - worker) / seconds : 0;
    uint64_t requests = 0;
    uint64_t failed = 0;
    for (const Receiver &receiver : receivers) {
        AiPlcReceiverStatistics counted;
        counted.structSize = sizeof counted;
        AiPlcReceiverGetStatistics(receiver.get(), &counted);
        requests += counted.requests;
        failed += counted.requestsFailed;
    }
    std::printf("%-11s %8.1f %8.1f %10.0f %9.2f %9llu %7llu\n", name, hostMs, workerMs,
                1e3 / (hostMs + workerMs), (ResidentMb() - before) / std::max(calls - 1, 1),
                static_cast<unsigned long long>(requests), static_cast<unsigned long long>(failed));
}

// In a process of its own, so that memory that one has freed is not taken for another's.
void MeasureAlone(const char *name, AiPlcPredictor predictor, const std::vector<RtpPacket> &packets,
                  int calls) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("no process can be started");
    if (child == 0) {
        int code = 1;
        try {
            Measure(name, predictor, packets, calls);
            code = std::fflush(stdout) == 0 ? 0 : 1;
        } catch (const std::exception &failure) {
            std::fprintf(stderr, "channels: %s\n", failure.what());
        }
        _exit(code);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) throw std::runtime_error(std::string(name) + " could not be measured");
}

}  // namespace

int main(int argc, char **argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 30;
    const int calls = argc > 2 ? std::atoi(argv[2]) : 4;
    if (seconds < 1 || seconds > 3600 || calls < 1 || calls > 64) {
        std::fprintf(stderr, "channels: give SECONDS from 1 to 3600 and CALLS from 1 to 64\n");
        return 2;
    }
    try {
        aiplc::host::Sender sender({.sampleRate = kRate});
        const auto packets = sender.Push(aiplc::bench::MakeSpeech(kRate, seconds));
        std::puts("predictor    host ms worker ms calls/core MB a call  requests  failed");
        MeasureAlone("none", AIPLC_PREDICTOR_NONE, packets, calls);
        MeasureAlone("worker", AIPLC_PREDICTOR_WORKER, packets, calls);
        MeasureAlone("in-process", AIPLC_PREDICTOR_IN_PROCESS, packets, calls);
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "channels: %s\n", failure.what());
        return 1;
    }
    return 0;
}
