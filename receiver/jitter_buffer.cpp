// SPDX-License-Identifier: BSD-2-Clause

#include "receiver/jitter_buffer.h"

#include <algorithm>
#include <cstdlib>

namespace aiplc::receiver {
namespace {

constexpr int64_t kMs = 48;
constexpr int64_t kFrame = 960;
constexpr double kUsedShare = 0.97;    // of the packets, to be there before their frame is played
constexpr double kOnTimeShare = 0.90;  // of the packets, to be there when their frame is due
// Between these differences from the delay aimed at nothing is stretched.
constexpr int64_t kTooShort = -5 * kMs;
constexpr int64_t kTooLong = 15 * kMs;
// Nobody waits until so much is made up for by stretching: whole frames are left out.
constexpr int64_t kFarTooLong = 500 * kMs;
constexpr int64_t kMisplaced = int64_t{10} * 48000;  // the engine does not take such packets

int64_t Units(int64_t us) {
    return us / 1000 * kMs + us % 1000 * kMs / 1000;
}

}  // namespace

JitterBuffer::JitterBuffer(const AiPlcReceiverOptions &options, host::Receiver &engine)
    : m_options(options),
      m_engine(engine),
      m_unitsPerSample(48000 / options.sampleRate),
      m_stretch(options.sampleRate) {
    m_wanted = Wanted();
}

int64_t JitterBuffer::Wanted() const {
    const int64_t least = m_options.minDelayMs * kMs;
    if (m_options.jitterBuffer == AIPLC_JITTER_FIXED) return least;
    const int64_t lookAhead = m_options.useLatePackets == 1 ? kLookAheadFrames * kFrame : 0;
    const int64_t wanted = std::max(m_delays.Quantile(kUsedShare) - lookAhead,  //
                                    m_delays.Quantile(kOnTimeShare));
    return std::clamp(wanted, least, m_options.maxDelayMs * kMs);
}

void JitterBuffer::Arrive(uint32_t timestamp, int64_t arrivalUs, int64_t duration) {
    const int64_t start = m_engine.PositionOf(timestamp);
    const int64_t early = start - NextFrame() * kFrame;
    if (std::abs(early) > kMisplaced) return;
    const int64_t arrival = arrivalUs >= 0
                                ? Units(arrivalUs)
                                : m_pulled + (m_clockOffset.HasValue() ? m_clockOffset.Value() : 0);
    const int64_t unwrapped = m_delays.Add(arrival, timestamp);
    m_clockOffset.Add(arrival, arrival - m_pulled);
    m_lastArrival = arrival;
    if (!m_firstArrival) m_firstArrival = arrival;
    m_wanted = Wanted();
    if (!m_playing) return;
    m_due = early + m_queued + m_pulled - unwrapped;
    const int64_t due = *m_due + unwrapped + m_clockOffset.Value();
    NoteStay(start, duration, due - arrival + kLookAheadFrames * kFrame);
}

void JitterBuffer::NoteStay(int64_t start, int64_t duration, int64_t stay) {
    // Later than that it is not used.
    if (stay < (m_options.useLatePackets == 1 ? 0 : kLookAheadFrames * kFrame)) return;
    for (int64_t at = std::max<int64_t>(start, 0); at < start + std::max<int64_t>(duration, 1);
         at += kFrame) {
        const int64_t frame = at / kFrame;
        Stay &slot = m_stays[static_cast<size_t>(frame) % m_stays.size()];
        if (slot.frame != frame) slot = {frame, stay};
    }
}

// By how much the fastest packets wait longer than they should. 0 while that is not known.
int64_t JitterBuffer::Excess() const {
    if (!m_due) return 0;
    return *m_due + m_clockOffset.Value() - m_delays.Base() - m_wanted;
}

bool JitterBuffer::IsWaiting() {
    if (m_playing || !m_firstArrival) return false;
    if (!m_aligned) {
        // Packets may have been pushed for a while before anybody pulls.
        m_clockOffset = {};
        m_clockOffset.Add(m_lastArrival, m_lastArrival - m_pulled);
        m_aligned = true;
    }
    m_playing = m_pulled + m_clockOffset.Value() - *m_firstArrival >= m_wanted;
    return !m_playing;
}

std::span<const int16_t> JitterBuffer::Next(host::OutputFrame &frame) {
    std::span<const int16_t> samples;
    if (IsWaiting()) {
        samples = std::span(m_silence).first(m_options.sampleRate / 100);
    } else {
        do {
            frame = m_engine.Pull();
            const bool isLeftOut = m_playing && Excess() > kFarTooLong;
            m_lastFrame = std::max(frame.frame, m_lastFrame);
            CountEmitted(frame);
            samples = frame.samples;
            if (!isLeftOut) break;
            m_removed += samples.size();
            *m_due -= kFrame;
        } while (true);
        if (m_playing) samples = Stretch(samples);
    }
    m_queued = static_cast<int64_t>(samples.size()) * m_unitsPerSample;
    return samples;
}

std::span<const int16_t> JitterBuffer::Stretch(std::span<const int16_t> samples) {
    const int64_t excess = Excess();
    auto wanted = TimeStretch::Change::none;
    if (excess > kTooLong) wanted = TimeStretch::Change::shorten;
    if (excess < kTooShort) wanted = TimeStretch::Change::lengthen;
    // No further than to the other side of the delay aimed at.
    const auto most = static_cast<size_t>((std::abs(excess) + 5 * kMs) / m_unitsPerSample);
    const std::span<const int16_t> changed = m_stretch.Process(samples, wanted, most);
    if (changed.size() > samples.size()) m_inserted += changed.size() - samples.size();
    if (changed.size() < samples.size()) m_removed += samples.size() - changed.size();
    const auto change = static_cast<int64_t>(changed.size()) - static_cast<int64_t>(samples.size());
    if (m_due) *m_due += change * m_unitsPerSample;
    return changed;
}

void JitterBuffer::Pulled(size_t samples) {
    const int64_t time = static_cast<int64_t>(samples) * m_unitsPerSample;
    m_pulled += time;
    m_queued -= time;
}

void JitterBuffer::CountEmitted(const host::OutputFrame &frame) {
    if (frame.frame < 0) return;
    const Stay &stay = m_stays[static_cast<size_t>(frame.frame) % m_stays.size()];
    if (stay.frame != frame.frame) return;
    const auto samples = static_cast<double>(frame.samples.size());
    m_delaySum += samples * static_cast<double>(stay.time) / 48000;
    m_targetSum += samples * static_cast<double>(m_wanted + kLookAheadFrames * kFrame) / 48000;
    m_emitted += frame.samples.size();
}

void JitterBuffer::FillIn(AiPlcReceiverStatistics &statistics) const {
    statistics.jitterBufferDelay = m_delaySum;
    statistics.jitterBufferTargetDelay = m_targetSum;
    statistics.jitterBufferEmittedCount = m_emitted;
    statistics.insertedSamplesForDeceleration = m_inserted;
    statistics.removedSamplesForAcceleration = m_removed;
}

}  // namespace aiplc::receiver
