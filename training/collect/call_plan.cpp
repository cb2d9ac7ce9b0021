// SPDX-License-Identifier: BSD-2-Clause

#include "training/collect/call_plan.h"

#include <opus.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "training/collect/loss_plan.h"
#include "worker/window/gaps.h"

namespace aiplc::training {
namespace {

constexpr double kFileLevel = -25;  // dBFS of active speech that the recordings come with
constexpr double kHighestPeak = 31000;
constexpr int kAlwaysReceived = 5;  // packets at the start of a call

double Rms(std::span<const int16_t> samples) {
    double sum = 0;
    for (const int16_t s : samples)
        sum += double{1} * s * s;
    return samples.empty() ? 0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

double FromDb(double decibels) {
    return std::pow(10.0, decibels / 20);
}

int DrawBandwidth(Random &random) {
    const double draw = random.Uniform(0, 1);
    if (draw < 0.07) return OPUS_BANDWIDTH_NARROWBAND;
    if (draw < 0.12) return OPUS_BANDWIDTH_MEDIUMBAND;
    if (draw < 0.6) return OPUS_BANDWIDTH_WIDEBAND;
    return draw < 0.75 ? OPUS_BANDWIDTH_SUPERWIDEBAND : OPUS_BANDWIDTH_FULLBAND;
}

int DrawPacketMs(Random &random) {
    const double draw = random.Uniform(0, 1);
    if (draw < 0.88) return 20;
    if (draw < 0.92) return 10;
    return draw < 0.96 ? 40 : 60;
}

host::SenderOptions DrawSender(int speechRate, Random &random) {
    host::SenderOptions sender;
    sender.sampleRate = static_cast<uint32_t>(speechRate);
    sender.bitrate = random.Integer(12, 40) * 1000;
    sender.packetMs = DrawPacketMs(random);
    sender.maxBandwidth = DrawBandwidth(random);
    sender.complexity = random.Chance(0.6) ? 10 : random.Integer(2, 9);
    sender.dtx = random.Chance(0.1);
    sender.fec = random.Chance(0.12);
    if (sender.fec) sender.expectedLossPercent = random.Integer(5, 25);
    if (random.Chance(0.1)) sender.application = host::SenderApplication::audio;
    return sender;
}

}  // namespace

bool MixScene(std::vector<int16_t> &speech, std::span<const int16_t> background, Random &random) {
    int loudest = 1;
    for (const int16_t s : speech)
        loudest = std::max(loudest, std::abs(int{s}));
    const double gain =
        std::min(FromDb(random.Uniform(-40, -15) - kFileLevel), kHighestPeak / loudest);
    double noiseGain = 0;
    size_t start = 0;
    if (!background.empty() && random.Chance(0.25)) {
        const double below = FromDb(-random.Uniform(5, 30));
        noiseGain = below * gain * Rms(speech) / std::max(Rms(background), 1.0);
        start = random.Bits() % background.size();
    }
    for (size_t i = 0; i < speech.size(); ++i) {
        double sample = gain * speech[i];
        if (noiseGain > 0) sample += noiseGain * background[(start + i) % background.size()];
        speech[i] = static_cast<int16_t>(std::lrint(std::clamp(sample, -32768.0, 32767.0)));
    }
    return noiseGain > 0;
}

CallSetup DrawCall(Scene scene, int speechRate, double seconds, Random &random) {
    CallSetup setup;
    setup.sender.sampleRate = static_cast<uint32_t>(speechRate);
    setup.sender.maxBandwidth = OPUS_BANDWIDTH_WIDEBAND;
    if (scene == Scene::drawn) {
        setup.sender = DrawSender(speechRate, random);
        setup.outputRate = random.Chance(0.65) ? 16000 : 48000;
    }
    const auto packets = static_cast<size_t>(seconds * 1000 / setup.sender.packetMs) + 1;
    setup.lost = DrawLosses(scene, packets, random);
    std::fill_n(setup.lost.begin(), std::min<size_t>(packets, kAlwaysReceived), false);

    WindowRecord &facts = setup.facts;
    facts.rateKhz = static_cast<uint8_t>(setup.outputRate / 1000);
    facts.bitrate = static_cast<uint16_t>(setup.sender.bitrate / 100);
    facts.bandwidth = static_cast<uint8_t>(setup.sender.maxBandwidth - OPUS_BANDWIDTH_NARROWBAND);
    if (setup.sender.fec) facts.flags |= WindowRecord::kFec;
    if (setup.sender.dtx) facts.flags |= WindowRecord::kDtx;
    if (random.Chance(0.6)) {
        facts.flags |= WindowRecord::kTruthMixed;
        setup.answer = MixTruth(random.Uniform(0.5, 1));
    }
    return setup;
}

CallSetup::Answer MixTruth(double share) {
    return [share](const WindowRecord &request, Window &answer) {
        std::array<worker::Gap, worker::kMaxGaps> gaps;
        if (worker::FindGaps(request.window, gaps) == 0) return;
        for (size_t i = gaps[0].begin; i < answer.size(); ++i) {
            const double mixed = share * request.target[i] + (1 - share) * answer[i];
            answer[i] = static_cast<int16_t>(std::lrint(mixed));
        }
    };
}

}  // namespace aiplc::training
