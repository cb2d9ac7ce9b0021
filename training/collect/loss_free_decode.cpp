// SPDX-License-Identifier: BSD-2-Clause

#include "training/collect/loss_free_decode.h"

#include <aiplc/aiplc.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "host/decode_timeline.h"
#include "host/packet_buffer.h"

namespace aiplc::training {
namespace {

constexpr int64_t kFrameClock = 960;

host::BufferedPacket Buffered(const host::RtpPacket &packet, int64_t start, int64_t sequence) {
    const auto info = host::ParseOpusPacket(packet.payload);
    if (!info) throw std::runtime_error("the encoder made a packet that cannot be parsed");
    host::BufferedPacket buffered;
    buffered.start = start;
    buffered.usableFrom = start;
    buffered.sequence = sequence;
    buffered.info = *info;
    buffered.payload = packet.payload;
    return buffered;
}

// The low band of successive frames at 48 kHz.
class LowBandFilter {
  public:
    void Append(std::span<const int16_t> frame, std::vector<int16_t> &samples) {
        std::array<float, AIPLC_FRAME_SAMPLES_48K> audio{};
        AiPlcShort2Float(frame.data(), audio.data(), AIPLC_FRAME_SAMPLES_48K);
        if (AiPlcThreeBandAnalysis(audio.data(), audio.data(), m_memory.data(),
                                   AIPLC_FRAME_SAMPLES_48K) != 0) {
            throw std::runtime_error("the filter bank ran out of memory");
        }
        std::array<int16_t, AIPLC_BAND_SAMPLES> band{};
        AiPlcFloat2Short(audio.data(), band.data(), AIPLC_BAND_SAMPLES);
        samples.insert(samples.end(), band.begin(), band.end());
    }

  private:
    std::array<float, AIPLC_BANK_TAPS> m_memory{};
};

}  // namespace

int64_t LowBand::Frames() const {
    return static_cast<int64_t>(m_samples.size()) / AIPLC_BAND_SAMPLES;
}

void LowBand::CopyFrame(int64_t frame, int16_t *to) const {
    if (frame < 0 || frame >= Frames()) {
        std::fill_n(to, AIPLC_BAND_SAMPLES, int16_t{0});
    } else {
        std::copy_n(&m_samples[static_cast<size_t>(frame * AIPLC_BAND_SAMPLES)], AIPLC_BAND_SAMPLES,
                    to);
    }
}

LowBand DecodeLossFree(std::span<const host::RtpPacket> packets, uint32_t sampleRate,
                       int complexity) {
    host::PacketBuffer buffer;
    host::DecodeTimeline timeline(sampleRate, complexity, false, buffer);
    LowBandFilter filter;
    std::vector<int16_t> samples;
    std::vector<int16_t> concealed(sampleRate / 50);
    const uint32_t first = packets.front().timestamp;
    const int64_t frames = (packets.back().timestamp - first) / kFrameClock + 1;
    size_t next = 0;
    for (int64_t frame = 0; frame < frames; ++frame) {
        for (; next < packets.size(); ++next) {
            const int64_t start = packets[next].timestamp - first;
            if (start >= (frame + 1) * kFrameClock) break;
            buffer.Insert(Buffered(packets[next], start, static_cast<int64_t>(next)));
        }
        const host::DecodedFrame decoded = timeline.Next();
        std::span<const int16_t> audio = decoded.samples;
        if (decoded.IsLost()) {
            timeline.Conceal(concealed);
            audio = concealed;
        }
        if (sampleRate == 48000) {
            filter.Append(audio, samples);
        } else {
            samples.insert(samples.end(), audio.begin(), audio.end());
        }
        buffer.EraseBefore(frame * kFrameClock);
    }
    return LowBand(std::move(samples));
}

}  // namespace aiplc::training
