// SPDX-License-Identifier: BSD-2-Clause

#include "tests/host/call.h"

#include <opus.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

namespace aiplc::host {

std::vector<int16_t> SpeechLike(uint32_t sampleRate, double seconds) {
    std::vector<int16_t> pcm(static_cast<size_t>(seconds * sampleRate));
    double phase = 0;
    uint32_t noise = 1;
    for (size_t i = 0; i < pcm.size(); ++i) {
        const double time = static_cast<double>(i) / sampleRate;
        phase += 2 * std::numbers::pi * (140 + 25 * std::sin(5 * time)) / sampleRate;
        double sample = 0;
        for (int harmonic = 1; harmonic <= 12; ++harmonic)
            sample += std::sin(harmonic * phase) / harmonic;
        noise = noise * 1664525U + 1013904223U;
        sample += static_cast<double>(noise >> 16) / 65536 - 0.5;
        const double syllable = std::max(0.05, std::sin(2 * std::numbers::pi * 3 * time));
        pcm[i] = static_cast<int16_t>(5000 * syllable * sample);
    }
    return pcm;
}

std::vector<RtpPacket> Encode(const SenderOptions &options, const std::vector<int16_t> &pcm) {
    Sender sender(options);
    std::vector<RtpPacket> packets = sender.Push(pcm);
    for (RtpPacket &packet : sender.Flush())
        packets.push_back(std::move(packet));
    return packets;
}

std::vector<int16_t> DecodeAll(const std::vector<RtpPacket> &packets, uint32_t sampleRate) {
    const std::unique_ptr<OpusDecoder, void (*)(OpusDecoder *)> decoder(
        opus_decoder_create(static_cast<opus_int32>(sampleRate), 1, nullptr), opus_decoder_destroy);
    std::vector<int16_t> pcm;
    std::vector<int16_t> packetPcm(5760);
    for (const RtpPacket &packet : packets) {
        const int samples =
            opus_decode(decoder.get(), packet.payload.data(),
                        static_cast<opus_int32>(packet.payload.size()), packetPcm.data(), 5760, 0);
        pcm.insert(pcm.end(), packetPcm.begin(), packetPcm.begin() + samples);
    }
    return pcm;
}

std::string PlayedCall::Sources() const {
    std::string letters;
    for (const FrameSource source : sources)
        letters += "sdlfxpiecmo"[static_cast<size_t>(source)];
    return letters;
}

PlayedCall Play(const std::vector<RtpPacket> &packets, const ReceiverOptions &options,
                const Arrival &arrival, int64_t frames) {
    std::vector<std::vector<size_t>> arriving;
    int64_t last = 0;
    for (size_t i = 0; i < packets.size(); ++i) {
        const int64_t due = (packets[i].timestamp - packets[0].timestamp) / 960;
        const std::optional<int64_t> tick = arrival(i, due);
        last = due;
        if (!tick) continue;
        arriving.resize(std::max(arriving.size(), static_cast<size_t>(*tick) + 1));
        arriving[static_cast<size_t>(*tick)].push_back(i);
    }
    const int64_t end = (frames > 0 ? frames : last + 1) + Receiver::kLookAheadFrames;

    Receiver receiver(options);
    PlayedCall call;
    for (int64_t tick = 0; tick < end; ++tick) {
        if (static_cast<size_t>(tick) < arriving.size()) {
            for (const size_t index : arriving[static_cast<size_t>(tick)])
                receiver.Push(packets[index]);
        }
        OutputFrame frame = receiver.Pull();
        if (frame.frame < 0) continue;
        call.pcm.insert(call.pcm.end(), frame.samples.begin(), frame.samples.end());
        call.sources.push_back(frame.source);
        frame.samples = {};
        call.frames.push_back(frame);
    }
    call.statistics = receiver.GetStatistics();
    return call;
}

Arrival InTime() {
    return [](size_t, int64_t due) { return std::optional(due); };
}

Arrival Losing(std::vector<size_t> lost) {
    return [lost = std::move(lost)](size_t index, int64_t due) {
        return std::ranges::find(lost, index) == lost.end() ? std::optional(due) : std::nullopt;
    };
}

}  // namespace aiplc::host
