// SPDX-License-Identifier: BSD-2-Clause

#include "host/sender.h"

#include <opus.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "host/redundant_audio.h"

namespace aiplc::host {
namespace {

constexpr uint32_t kClockPerMs = 48;
constexpr size_t kMaxPayload = 1275 * 3 + 7;  // libopus's recommendation for up to 60 ms
constexpr size_t kPauseBytes = 2;

void Require(bool ok, const std::string &message) {
    if (!ok) throw std::runtime_error(message);
}

void CheckRange(const char *name, int value, int low, int high) {
    Require(value >= low && value <= high, std::string(name) + " is " + std::to_string(value) +
                                               ", must be " + std::to_string(low) + " to " +
                                               std::to_string(high));
}

void CheckOptions(const SenderOptions &options) {
    const uint32_t rate = options.sampleRate;
    Require(rate == 8000 || rate == 12000 || rate == 16000 || rate == 24000 || rate == 48000,
            "sample rate is " + std::to_string(rate) +
                " Hz, must be 8000, 12000, 16000, 24000 or 48000");
    const int ms = options.packetMs;
    Require(ms == 10 || ms == 20 || ms == 40 || ms == 60,
            "packet duration is " + std::to_string(ms) + " ms, must be 10, 20, 40 or 60");
    CheckRange("bitrate", options.bitrate, 6000, 510000);
    CheckRange("expected packet loss", options.expectedLossPercent, 0, 100);
    CheckRange("encoder complexity", options.complexity, 0, 10);
    CheckRange("redundancy", options.redundancy, 0, 4);
    if (options.maxBandwidth != 0) {
        CheckRange("bandwidth", options.maxBandwidth, OPUS_BANDWIDTH_NARROWBAND,
                   OPUS_BANDWIDTH_FULLBAND);
    }
}

int OpusApplication(SenderApplication application) {
    switch (application) {
        case SenderApplication::voip:
            return OPUS_APPLICATION_VOIP;
        case SenderApplication::audio:
            return OPUS_APPLICATION_AUDIO;
        case SenderApplication::lowDelay:
            return OPUS_APPLICATION_RESTRICTED_LOWDELAY;
    }
    throw std::runtime_error("unknown application of the sender");
}

void Check(int result, const char *what) {
    Require(result == OPUS_OK, std::string("Opus encoder: ") + what + ": " + opus_strerror(result));
}

void Configure(OpusEncoder *encoder, const SenderOptions &options) {
    Check(opus_encoder_ctl(encoder, OPUS_SET_BITRATE(options.bitrate)), "bitrate");
    Check(opus_encoder_ctl(encoder, OPUS_SET_COMPLEXITY(options.complexity)), "complexity");
    Check(opus_encoder_ctl(encoder, OPUS_SET_INBAND_FEC(options.fec ? 1 : 0)), "in-band FEC");
    Check(opus_encoder_ctl(encoder, OPUS_SET_PACKET_LOSS_PERC(options.expectedLossPercent)),
          "expected packet loss");
    Check(opus_encoder_ctl(encoder, OPUS_SET_DTX(options.dtx ? 1 : 0)), "DTX");
    Check(opus_encoder_ctl(encoder, OPUS_SET_SIGNAL(OPUS_SIGNAL_VOICE)), "signal type");
    if (options.maxBandwidth != 0) {
        Check(opus_encoder_ctl(encoder, OPUS_SET_MAX_BANDWIDTH(options.maxBandwidth)), "bandwidth");
    }
}

}  // namespace

void Sender::EncoderDeleter::operator()(OpusEncoder *encoder) const {
    opus_encoder_destroy(encoder);
}

Sender::Sender(const SenderOptions &options)
    : m_packetSamples(size_t{options.sampleRate} * static_cast<uint32_t>(options.packetMs) / 1000),
      m_timestampStep(static_cast<uint32_t>(options.packetMs) * kClockPerMs),
      m_sequenceNumber(options.firstSequenceNumber),
      m_timestamp(options.firstTimestamp),
      m_redundancy(static_cast<size_t>(std::max(options.redundancy, 0))) {
    CheckOptions(options);
    int error = OPUS_OK;
    m_encoder.reset(opus_encoder_create(static_cast<opus_int32>(options.sampleRate), 1,
                                        OpusApplication(options.application), &error));
    Check(error, "creation");
    Configure(m_encoder.get(), options);
    opus_int32 lookAhead = 0;
    Check(opus_encoder_ctl(m_encoder.get(), OPUS_GET_LOOKAHEAD(&lookAhead)), "look-ahead");
    m_lookAhead = lookAhead;
}

Sender::~Sender() = default;

std::vector<RtpPacket> Sender::Push(std::span<const int16_t> pcm) {
    std::vector<RtpPacket> packets;
    m_pending.insert(m_pending.end(), pcm.begin(), pcm.end());
    size_t taken = 0;
    for (; m_pending.size() - taken >= m_packetSamples; taken += m_packetSamples)
        EncodePacket(std::span(m_pending).subspan(taken, m_packetSamples), packets);
    m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(taken));
    return packets;
}

std::vector<RtpPacket> Sender::Flush() {
    if (m_pending.empty()) return {};
    m_pending.resize(m_packetSamples);
    return Push({});
}

// Of the packets before the next one.
std::vector<RedundantCopy> Sender::Copies() const {
    std::vector<RedundantCopy> copies;
    for (const RtpPacket &sent : m_sent) {
        const uint32_t offset = m_timestamp - sent.timestamp;
        if (offset <= kMaxCopyOffset && sent.payload.size() <= kMaxCopyBytes)
            copies.push_back({static_cast<uint16_t>(offset), sent.payload});
    }
    return copies;
}

void Sender::EncodePacket(std::span<const int16_t> pcm, std::vector<RtpPacket> &packets) {
    std::array<uint8_t, kMaxPayload> payload{};
    const opus_int32 size = opus_encode(m_encoder.get(), pcm.data(), static_cast<int>(pcm.size()),
                                        payload.data(), static_cast<opus_int32>(payload.size()));
    if (size < 0) throw std::runtime_error(std::string("Opus encoder: ") + opus_strerror(size));

    const auto bytes = static_cast<size_t>(size);
    const bool pause = bytes <= kPauseBytes;
    if (!pause || !m_pausing) {
        const auto end = payload.begin() + size;
        const RtpPacket packet{m_sequenceNumber++, m_timestamp, {payload.begin(), end}};
        packets.push_back(packet);
        packets.back().copies = Copies();
        m_sent.push_back(packet);
        if (m_sent.size() > m_redundancy) m_sent.pop_front();
    }
    m_pausing = pause;
    m_timestamp += m_timestampStep;
}

}  // namespace aiplc::host
