// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_HOST_CALL_H
#define AIPLC_TESTS_HOST_CALL_H

#include <gtest/gtest.h>
#include <opus.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

#include "host/receiver.h"
#include "host/sender.h"

namespace aiplc::host {

using Pcm = std::vector<int16_t>;
using Packets = std::vector<RtpPacket>;

// Voiced sound with a moving pitch, noise and pauses between syllables.
inline Pcm SpeechLike(uint32_t sampleRate, double seconds) {
    Pcm pcm(static_cast<size_t>(seconds * sampleRate));
    double phase = 0;
    uint32_t noise = 1;
    for (size_t i = 0; i < pcm.size(); ++i) {
        const double time = static_cast<double>(i) / sampleRate;
        phase += 2 * std::numbers::pi * (140 + 25 * std::sin(5 * time)) / sampleRate;
        noise = noise * 1664525U + 1013904223U;
        double sample = static_cast<double>(noise >> 16) / 65536 - 0.5;
        for (int harmonic = 1; harmonic <= 12; ++harmonic)
            sample += std::sin(harmonic * phase) / harmonic;
        const double syllable = std::max(0.05, std::sin(2 * std::numbers::pi * 3 * time));
        pcm[i] = static_cast<int16_t>(5000 * syllable * sample);
    }
    return pcm;
}

inline Packets Encode(const SenderOptions &options, const Pcm &pcm) {
    Sender sender(options);
    Packets packets = sender.Push(pcm);
    std::ranges::move(sender.Flush(), std::back_inserter(packets));
    return packets;
}

inline Packets Speech(const SenderOptions &options, double seconds) {
    return Encode(options, SpeechLike(options.sampleRate, seconds));
}

// The packets decoded one after the other. One without a payload is a lost frame.
inline Pcm DecodeAll(const Packets &packets, uint32_t sampleRate,
                     std::optional<int> complexity = {}) {
    const std::unique_ptr<OpusDecoder, void (*)(OpusDecoder *)> decoder(
        opus_decoder_create(static_cast<opus_int32>(sampleRate), 1, nullptr), opus_decoder_destroy);
    if (complexity) (void)opus_decoder_ctl(decoder.get(), OPUS_SET_COMPLEXITY(*complexity));
    Pcm pcm;
    for (const RtpPacket &packet : packets) {
        const bool isLost = packet.payload.empty();
        const auto room = isLost ? static_cast<int>(sampleRate / 50) : 5760;
        int16_t decoded[5760];
        const int samples =
            opus_decode(decoder.get(), isLost ? nullptr : packet.payload.data(),
                        static_cast<opus_int32>(packet.payload.size()), decoded, room, 0);
        pcm.insert(pcm.end(), decoded, decoded + samples);
    }
    return pcm;
}

// The decoder changes no received audio, so that it can be told from a plain decoder's.
inline ReceiverOptions NoWorker(uint32_t sampleRate) {
    return {.sampleRate = sampleRate, .predictor = AIPLC_PREDICTOR_NONE, .decoderComplexity = 5};
}

// The tick at which a packet arrives, in time when it is the one that it is due; nothing: lost.
using Arrival = std::function<std::optional<int64_t>(size_t index, int64_t due)>;

// All packets in time but the lost ones, and the first to last of some that are delayed.
inline Arrival Losing(const std::vector<size_t> &lost, size_t first = 0, size_t last = 0,
                      int64_t delay = 0) {
    return [=](size_t index, int64_t due) -> std::optional<int64_t> {
        if (std::ranges::count(lost, index) > 0) return std::nullopt;
        return index >= first && index <= last ? due + delay : due;
    };
}

// A receiver's output from frame 0 on.
struct PlayedCall {
    // Plays a call to its end or, where frames are given, so many.
    PlayedCall(const Packets &packets, const ReceiverOptions &options,
               const Arrival &arrival = Losing({}), int64_t count = 0) {
        std::vector<std::vector<size_t>> arriving(1000);
        for (size_t i = 0; i < packets.size(); ++i) {
            const int64_t due = (packets[i].timestamp - packets[0].timestamp) / 960;
            const std::optional<int64_t> tick = arrival(i, due);
            if (tick) arriving.at(static_cast<size_t>(*tick)).push_back(i);
        }
        if (count == 0) count = (packets.back().timestamp - packets[0].timestamp) / 960 + 1;
        Receiver receiver(options);
        for (size_t tick = 0; frames.size() < static_cast<size_t>(count); ++tick) {
            for (const size_t index : arriving.at(tick))
                receiver.Push(packets[index]);
            OutputFrame frame = receiver.Pull();
            if (frame.frame < 0) continue;
            std::ranges::copy(frame.samples, std::back_inserter(pcm));
            sources += "sdlfxpie2cmor"[static_cast<size_t>(frame.source)];
            frame.samples = {};
            frames.push_back(frame);
        }
        statistics = receiver.GetStatistics();
    }
    Pcm pcm;
    // One letter a frame: s startup, d decoded, l late, f FEC, x DTX, p partial, i interpolated,
    // e extrapolated, 2 second look, c codec, m muted, o lost, r redundant.
    std::string sources;
    std::vector<OutputFrame> frames;  // without samples
    Statistics statistics;
};

}  // namespace aiplc::host

#endif
