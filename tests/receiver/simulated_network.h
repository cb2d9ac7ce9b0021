// SPDX-License-Identifier: BSD-2-Clause
//
// Calls over networks whose delays are drawn from fixed seeds. A clean second of speech is sent
// again and again; nothing is lost, so that each packet that is not played was late.

#ifndef AIPLC_TESTS_RECEIVER_SIMULATED_NETWORK_H
#define AIPLC_TESTS_RECEIVER_SIMULATED_NETWORK_H

#include <aiplc/receiver.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "tests/host/call.h"

namespace aiplc::receiver {

enum class Network { lan, wifiBursts, lteHandover, fastSender, slowSender };

// Microseconds after the start of the call at which each packet arrives, in the order of sending.
inline std::vector<int64_t> Arrivals(Network network, size_t packets) {
    std::mt19937 random(7);
    // The standard's distributions differ between its implementations; its generators do not.
    const auto uniform = [&random] { return (static_cast<double>(random()) + 0.5) / 4294967296.0; };
    const auto exponential = [&](double mean) { return -mean * std::log(uniform()); };
    const double clock = network == Network::fastSender   ? 1 - 200e-6
                         : network == Network::slowSender ? 1 + 200e-6
                                                          : 1;
    std::vector<int64_t> arrivals;
    double blockedUntil = 0;  // ms; nothing gets through before
    for (size_t i = 0; i < packets; ++i) {
        const double sent = 20.0 * static_cast<double>(i) * clock;
        double arrival = sent + 5;
        switch (network) {
            case Network::lan:
                arrival += exponential(0.5);
                break;
            case Network::wifiBursts:  // the radio is busy for 30 to 120 ms, every two seconds
                arrival += exponential(2);
                if (uniform() < 0.01) blockedUntil = sent + 30 + 90 * uniform();
                break;
            case Network::lteHandover:  // every ten seconds 150 to 300 ms, and another delay behind
                arrival += 30 + exponential(6) + (i / 500 % 2 == 1 ? 25 : 0);
                if (i % 500 == 400) blockedUntil = sent + 150 + 150 * uniform();
                break;
            case Network::fastSender:
            case Network::slowSender:
                arrival += exponential(3);
                break;
        }
        // Packets that have been waiting go out at 2 ms a packet.
        if (arrival < blockedUntil) arrival = blockedUntil += 2;
        arrivals.push_back(static_cast<int64_t>(arrival * 1000));
    }
    return arrivals;
}

struct NetworkResult {
    double delayMs = 0;  // from arrival to output, of what was played
    double lateLostPercent = 0;
    double onTimePercent = 0;  // there when their frames were due
    double insertedMs = 0;
    double removedMs = 0;
    AiPlcReceiverStatistics statistics{};
};

// Plays a call of so many packets of 20 ms, pulling 10 ms at a time.
inline NetworkResult PlayOver(const std::vector<int64_t> &arrivals, AiPlcReceiverOptions options) {
    static const host::Packets speech = host::Speech({.sampleRate = 16000}, 10);
    options.sampleRate = 16000;
    options.predictor = AIPLC_PREDICTOR_NONE;
    options.decoderComplexity = 0;
    AiPlcReceiver *made = nullptr;
    EXPECT_EQ(AiPlcReceiverCreate(&made, &options), AIPLC_RECEIVER_OK);
    const std::unique_ptr<AiPlcReceiver, void (*)(AiPlcReceiver *)> receiver(made,
                                                                             AiPlcReceiverDestroy);
    std::vector<size_t> order(arrivals.size());
    std::iota(order.begin(), order.end(), 0);
    std::ranges::stable_sort(order, {}, [&](size_t index) { return arrivals[index]; });
    std::vector<int16_t> samples(160);
    size_t next = 0;
    for (int64_t now = 0; next < order.size(); now += 10'000) {
        for (; next < order.size() && arrivals[order[next]] <= now; ++next) {
            const size_t index = order[next];
            const std::vector<uint8_t> &payload = speech[index % speech.size()].payload;
            EXPECT_EQ(AiPlcReceiverPush(receiver.get(), payload.data(), payload.size(),
                                        static_cast<uint16_t>(index),
                                        static_cast<uint32_t>(index * 960), arrivals[index]),
                      AIPLC_RECEIVER_OK);
        }
        EXPECT_EQ(AiPlcReceiverPull(receiver.get(), samples.data(), samples.size()),
                  AIPLC_RECEIVER_OK);
    }
    NetworkResult result;
    AiPlcReceiverStatistics &counted = result.statistics;
    counted.structSize = sizeof counted;
    EXPECT_EQ(AiPlcReceiverGetStatistics(receiver.get(), &counted), AIPLC_RECEIVER_OK);
    const auto received = static_cast<double>(counted.packetsReceived);
    const auto late = static_cast<double>(counted.framesBySource[AIPLC_SOURCE_LATE]);
    const auto discarded = static_cast<double>(counted.packetsDiscarded);
    result.delayMs =
        1e3 * counted.jitterBufferDelay / static_cast<double>(counted.jitterBufferEmittedCount);
    result.lateLostPercent = 100 * discarded / received;
    result.onTimePercent = 100 * (received - discarded - late) / received;
    result.insertedMs = static_cast<double>(counted.insertedSamplesForDeceleration) / 16;
    result.removedMs = static_cast<double>(counted.removedSamplesForAcceleration) / 16;
    return result;
}

}  // namespace aiplc::receiver

#endif
