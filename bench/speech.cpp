// SPDX-License-Identifier: BSD-2-Clause

#include "bench/speech.h"

#include <opus.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <stdexcept>

#include "bench/pace.h"
#include "host/sender.h"

namespace aiplc::bench {

namespace {

constexpr int kBitrate = 24000;
constexpr int kSeconds = 10;
constexpr int kSyllablesPerSecond = 4;
constexpr int kHarmonics = 24;

// The harmonics of a pitch of 140 Hz that swings by a fifth, louder round a formant at 600 Hz.
double Voice(double time) {
    const double phase = 2 * std::numbers::pi * (140 * time + 4 * std::sin(5 * time));
    double sum = 0;
    for (int harmonic = 1; harmonic <= kHarmonics; ++harmonic) {
        const double distance = (140.0 * harmonic - 600) / 800;
        sum += std::sin(harmonic * phase + harmonic * harmonic) / (1 + distance * distance);
    }
    return sum;
}

}  // namespace

std::vector<int16_t> MakeSpeech(int rate, int seconds) {
    std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same speech in every run
    std::normal_distribution<double> noise;
    std::vector<int16_t> speech(static_cast<size_t>(rate) * static_cast<size_t>(seconds));
    for (size_t i = 0; i < speech.size(); ++i) {
        const double time = static_cast<double>(i) / rate;
        const double syllable = time * kSyllablesPerSecond;
        const double loudness = std::pow(std::sin(std::numbers::pi * syllable), 2);
        const bool isVoiced = static_cast<int>(syllable) % 3 != 2;
        const double sound =
            isVoiced ? 1000 * Voice(time) + 60 * noise(random) : 1500 * noise(random);
        speech[i] = static_cast<int16_t>(std::clamp(loudness * sound, -30000.0, 30000.0));
    }
    return speech;
}

void OpusCall::DecoderDeleter::operator()(OpusDecoder *decoder) const {
    opus_decoder_destroy(decoder);
}

OpusCall::OpusCall(int rate)
    : m_bandwidth(rate == 48000 ? OPUS_BANDWIDTH_FULLBAND : OPUS_BANDWIDTH_WIDEBAND),
      m_frame(static_cast<size_t>(rate) / 50),
      m_decoder(opus_decoder_create(rate, 1, nullptr)) {
    if (!m_decoder) throw std::runtime_error("no Opus decoder");
    host::Sender sender({.sampleRate = static_cast<uint32_t>(rate), .bitrate = kBitrate});
    for (host::RtpPacket &packet : sender.Push(MakeSpeech(rate, kSeconds))) {
        const int bandwidth = opus_packet_get_bandwidth(packet.payload.data());
        // The encoder begins wide and needs a few packets to know better.
        if (m_packets.size() > 100 && bandwidth != static_cast<int>(m_bandwidth))
            throw std::runtime_error("Opus encoded another bandwidth than the benchmark's");
        m_packets.push_back(std::move(packet.payload));
    }
}

int64_t OpusCall::DecodeNext() {
    const std::vector<uint8_t> &packet = m_packets[m_next];
    m_next = (m_next + 1) % m_packets.size();
    const int wanted = static_cast<int>(m_frame.size());
    const int64_t begin = Nanoseconds();
    const int samples = opus_decode(m_decoder.get(), packet.data(), static_cast<int>(packet.size()),
                                    m_frame.data(), wanted, 0);
    const int64_t took = Nanoseconds() - begin;
    if (samples != wanted) throw std::runtime_error("Opus could not decode its own packet");
    return took;
}

}  // namespace aiplc::bench
