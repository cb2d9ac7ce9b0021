// SPDX-License-Identifier: BSD-2-Clause

#include "training/collect/loss_plan.h"

#include "tools/loss/loss_model.h"

namespace aiplc::training {
namespace {

constexpr double kPairShare = 0.2;

// Of the scene recorded. Packets of a stretch, 2.4 s and 1.3 s on average when they hold 20 ms.
constexpr int kShortestGood = 60;
constexpr int kLongestGood = 180;
constexpr int kShortestBad = 35;
constexpr int kLongestBad = 100;
constexpr double kShareBad = 0.36;

struct Range {
    int low;
    int high;
};

// Runs of received packets and of lost ones, in turn.
std::vector<bool> DrawRuns(size_t packets, Range received, Range burst, Random &random) {
    std::vector<bool> lost;
    while (lost.size() < packets) {
        lost.insert(lost.end(), static_cast<size_t>(random.Integer(received.low, received.high)),
                    false);
        lost.insert(lost.end(), static_cast<size_t>(random.Integer(burst.low, burst.high)), true);
    }
    return lost;
}

std::vector<bool> DrawSinglesAndPairs(size_t packets, double pairShare, Random &random) {
    std::vector<bool> lost;
    while (lost.size() < packets) {
        lost.insert(lost.end(), static_cast<size_t>(random.Integer(8, 17)), false);
        lost.insert(lost.end(), random.Chance(pairShare) ? 2 : 1, true);
    }
    return lost;
}

// meanBurst: packets; 0: each packet on its own.
void AppendMarkovLosses(size_t packets, double rate, double meanBurst, Random &random,
                        std::vector<bool> &lost) {
    tools::GilbertElliott model(rate, meanBurst, random.Bits());
    for (size_t i = 0; i < packets; ++i)
        lost.push_back(model.NextLost());
}

std::vector<bool> DrawMarkovLosses(size_t packets, double lowRate, double highRate,
                                   Random &random) {
    const double rate = random.Uniform(lowRate, highRate);
    const double burst = random.Uniform(1.3, 6);
    std::vector<bool> lost;
    AppendMarkovLosses(packets, rate, burst, random, lost);
    return lost;
}

std::vector<bool> DrawRecordedLosses(size_t packets, Random &random) {
    std::vector<bool> lost;
    for (bool isBad = random.Chance(kShareBad); lost.size() < packets; isBad = !isBad) {
        const int length = isBad ? random.Integer(kShortestBad, kLongestBad)
                                 : random.Integer(kShortestGood, kLongestGood);
        const double rate = isBad ? random.Uniform(0.2, 0.4) : random.Uniform(0.01, 0.03);
        const double burst = isBad ? random.Uniform(1.3, 2.5) : 0;
        AppendMarkovLosses(static_cast<size_t>(length), rate, burst, random, lost);
    }
    return lost;
}

std::vector<bool> DrawAnyLosses(size_t packets, Random &random) {
    const double kind = random.Uniform(0, 1);
    if (kind < 0.15) return DrawLosses(Scene::single, packets, random);
    if (kind < 0.25) return DrawLosses(Scene::random, packets, random);
    if (kind < 0.45) return DrawLosses(Scene::recorded, packets, random);
    if (kind < 0.6) return DrawLosses(Scene::shortBursts, packets, random);
    if (kind < 0.75) return DrawLosses(Scene::longBursts, packets, random);
    return DrawMarkovLosses(packets, 0.05, 0.4, random);
}

}  // namespace

std::vector<bool> DrawLosses(Scene scene, size_t packets, Random &random) {
    std::vector<bool> lost;
    switch (scene) {
        case Scene::single:
            return DrawSinglesAndPairs(packets, 0, random);
        case Scene::random:
            AppendMarkovLosses(packets, 0.1, 0, random, lost);
            return lost;
        case Scene::shortBursts:
            return DrawRuns(packets, {8, 20}, {2, 3}, random);
        case Scene::longBursts:
            return DrawRuns(packets, {8, 20}, {4, 6}, random);
        case Scene::mixed:
            return DrawMarkovLosses(packets, 0.1, 0.2, random);
        case Scene::recorded:
            return DrawRecordedLosses(packets, random);
        case Scene::tone:
        case Scene::dtmf:
        case Scene::music:
            return DrawSinglesAndPairs(packets, kPairShare, random);
        case Scene::drawn:
            break;
    }
    return DrawAnyLosses(packets, random);
}

}  // namespace aiplc::training
