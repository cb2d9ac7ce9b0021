// SPDX-License-Identifier: BSD-2-Clause
//
// jitter_table [MINUTES]: calls of so many minutes (5) over simulated networks, with the adaptive
// jitter buffer and with fixed ones of 40 and 80 ms. Delay: mean time from a packet's arrival to
// the output of its audio, the look-ahead of 60 ms included. Late: packets that came too late to be
// played. On time: packets that were there when their frame was due, before the look-ahead.

#include <cstdio>
#include <cstdlib>

#include "tests/receiver/simulated_network.h"

namespace {

using aiplc::receiver::Network;

struct Row {
    Network network;
    const char *name;
};
constexpr Row kRows[] = {{Network::lan, "LAN"},
                         {Network::wifiBursts, "Wi-Fi bursts"},
                         {Network::lteHandover, "LTE handover"},
                         {Network::fastSender, "+200 ppm"},
                         {Network::slowSender, "-200 ppm"}};

struct Buffer {
    const char *name;
    int32_t kind;
    int32_t delayMs;
};
constexpr Buffer kBuffers[] = {{"adaptive", AIPLC_JITTER_ADAPTIVE, 0},
                               {"fixed 40 ms", AIPLC_JITTER_FIXED, 40},
                               {"fixed 80 ms", AIPLC_JITTER_FIXED, 80}};

}  // namespace

int main(int argc, char **argv) {
    const double minutes = argc > 1 ? std::atof(argv[1]) : 5;
    if (!(minutes > 0 && minutes <= 600)) {
        std::fprintf(stderr, "jitter_table: give a number of minutes, up to 600\n");
        return 2;
    }
    std::printf("%-14s%-13s%10s%8s%10s%13s%12s\n", "network", "buffer", "delay", "late", "on time",
                "inserted", "removed");
    for (const Row &row : kRows) {
        const auto arrivals =
            aiplc::receiver::Arrivals(row.network, static_cast<size_t>(minutes * 3000));
        for (const Buffer &buffer : kBuffers) {
            AiPlcReceiverOptions options;
            AiPlcReceiverDefaults(&options);
            options.jitterBuffer = buffer.kind;
            options.minDelayMs = buffer.delayMs;
            const auto result = aiplc::receiver::PlayOver(arrivals, options);
            std::printf("%-14s%-13s%7.1f ms%6.2f %%%8.1f %%%7.0f ms/min%6.0f ms/min\n", row.name,
                        buffer.name, result.delayMs, result.lateLostPercent, result.onTimePercent,
                        result.insertedMs / minutes, result.removedMs / minutes);
        }
    }
    return 0;
}
