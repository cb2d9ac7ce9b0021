// SPDX-License-Identifier: BSD-2-Clause

#include "gstreamer/stream_decoder.h"

#include <opus.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace aiplc::gst {
namespace {

constexpr int64_t kClockRate = 48000;
constexpr uint64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kLargestDriftNs = 20'000'000;
constexpr size_t kLongestPayload = 61440;  // 48 frames of at most 1275 bytes, with their lengths

// Length on the 48 kHz clock; nothing for what is not an Opus packet.
std::optional<int64_t> OpusUnits(std::span<const uint8_t> payload) {
    if (payload.empty() || payload.size() > kLongestPayload) return {};
    std::array<opus_int16, 48> sizes{};
    const int frames = opus_packet_parse(payload.data(), static_cast<opus_int32>(payload.size()),
                                         nullptr, nullptr, sizes.data(), nullptr);
    if (frames <= 0) return {};
    return frames * opus_packet_get_samples_per_frame(payload.data(), kClockRate);
}

// For a packet that is not Opus: the buffer's own word, within the lengths of Opus packets.
int64_t StatedUnits(std::optional<uint64_t> duration, int64_t otherwise) {
    constexpr uint64_t kLongestNs = 120'000'000;
    if (!duration || *duration == 0 || *duration > kLongestNs) return otherwise;
    return static_cast<int64_t>(*duration * 3 / 62500);
}

}  // namespace

StreamDecoder::StreamDecoder(AiPlcReceiver *receiver, uint32_t sampleRate, Output output)
    : m_receiver(receiver),
      m_sampleRate(sampleRate),
      m_delay(AiPlcReceiverDelay(receiver)),
      m_output(std::move(output)),
      m_frame(sampleRate / 50) {}

int32_t StreamDecoder::Push(const Packet &packet) {
    m_isStopped = false;
    if (m_isSpent) {
        if (const int32_t result = Reset(); result != AIPLC_RECEIVER_OK) return result;
    }
    const std::optional<int64_t> known = OpusUnits(packet.payload);
    const int64_t units = known.value_or(StatedUnits(packet.duration, m_timeline.LastUnits()));
    std::optional<PacketTimeline::Place> place;
    if (!known && !m_timeline.IsRunning()) {
        // The receiver counts it, but a call begins with audio.
        place = {0, m_timeline.NextSequence()};
    } else {
        const bool isFirst = !m_timeline.IsRunning();
        place = m_timeline.Take(packet.time, std::max<int64_t>(units, 1), packet.isDiscontinuous);
        if (isFirst) m_baseTime = packet.time.value_or(0);
        if (place && packet.time) FollowTime(*packet.time, place->start);
    }
    if (!place) {
        const int32_t result = Drain();
        return result != AIPLC_RECEIVER_OK || m_isStopped ? result : Push(packet);
    }
    {
        const std::lock_guard lock(m_mutex);
        const int32_t result =
            AiPlcReceiverPush(m_receiver.get(), packet.payload.data(), packet.payload.size(),
                              place->sequence, static_cast<uint32_t>(place->start), -1);
        if (result != AIPLC_RECEIVER_OK) return result;
    }
    return PullFrames(m_timeline.End() / kFrameUnits);
}

int32_t StreamDecoder::Skip(std::optional<uint64_t> time, std::optional<uint64_t> duration,
                            bool isLost) {
    m_isStopped = false;
    if (!m_timeline.Skip(time, duration, isLost)) return Drain();
    return PullFrames(m_timeline.End() / kFrameUnits);
}

// The output's times run by its samples; where the packets' times have moved away from them by
// more than a frame, because two clocks differ, the output jumps there.
void StreamDecoder::FollowTime(uint64_t time, int64_t position) {
    const uint64_t expected = OutputTime(position * m_sampleRate / kClockRate);
    const auto drift = static_cast<int64_t>(time - expected);
    if (drift <= kLargestDriftNs && drift >= -kLargestDriftNs) return;
    m_baseTime += static_cast<uint64_t>(drift);
    m_seam = true;
}

uint64_t StreamDecoder::OutputTime(int64_t samples) const {
    const auto count = static_cast<uint64_t>(samples);
    const uint64_t seconds = count / m_sampleRate;
    return m_baseTime + seconds * kNsPerSecond + count % m_sampleRate * kNsPerSecond / m_sampleRate;
}

// Up to count frames since the timeline began.
int32_t StreamDecoder::PullFrames(int64_t count) {
    while (m_pulledFrames < count && !m_isStopped) {
        {
            const std::lock_guard lock(m_mutex);
            const int32_t result =
                AiPlcReceiverPull(m_receiver.get(), m_frame.data(), m_frame.size());
            if (result != AIPLC_RECEIVER_OK) return result;
        }
        ++m_pulledFrames;
        m_isStopped = !Emit(m_frame);
    }
    return AIPLC_RECEIVER_OK;
}

// Cuts off what lies before the first packet's time and behind the end of the last one.
bool StreamDecoder::Emit(std::span<const int16_t> samples) {
    const int64_t end = m_pulledFrames * static_cast<int64_t>(m_frame.size()) - m_delay;
    const int64_t limit = m_timeline.End() * m_sampleRate / kClockRate;
    const int64_t surplus = std::max<int64_t>(end - limit, 0);
    const int64_t count = std::min(end - surplus - m_emitted, static_cast<int64_t>(samples.size()));
    if (count <= 0) return true;
    const int64_t begin = static_cast<int64_t>(samples.size()) - surplus - count;
    Sound sound;
    sound.samples = samples.subspan(static_cast<size_t>(begin), static_cast<size_t>(count));
    sound.time = OutputTime(m_emitted);
    sound.duration = OutputTime(m_emitted + count) - sound.time;
    sound.isDiscontinuous = std::exchange(m_seam, false);
    m_emitted += count;
    return m_output(sound);
}

int32_t StreamDecoder::Drain() {
    m_isStopped = false;
    if (!m_timeline.IsRunning()) return AIPLC_RECEIVER_OK;
    const int64_t samples = m_timeline.End() * m_sampleRate / kClockRate + m_delay;
    const auto frame = static_cast<int64_t>(m_frame.size());
    const int32_t result = PullFrames((samples + frame - 1) / frame);
    m_timeline.Restart();
    m_isSpent = true;
    return result;
}

int32_t StreamDecoder::Reset() {
    m_timeline.Restart();
    m_isSpent = false;
    m_seam = true;
    m_pulledFrames = 0;
    m_emitted = 0;
    const std::lock_guard lock(m_mutex);
    return AiPlcReceiverReset(m_receiver.get());
}

// A frame is let out by the packet that completes the newest frame of the look-ahead, and packets
// shorter than a frame complete it later.
uint64_t StreamDecoder::Latency() const {
    const int64_t wait = std::max<int64_t>(kFrameUnits - m_timeline.LastUnits(), 0);
    return m_delay * kNsPerSecond / m_sampleRate + static_cast<uint64_t>(wait) * 62500 / 3;
}

AiPlcReceiverStatistics StreamDecoder::Statistics() const {
    AiPlcReceiverStatistics statistics{};
    statistics.structSize = sizeof statistics;
    const std::lock_guard lock(m_mutex);
    (void)AiPlcReceiverGetStatistics(m_receiver.get(), &statistics);
    return statistics;
}

}  // namespace aiplc::gst
