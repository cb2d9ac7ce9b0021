// SPDX-License-Identifier: BSD-2-Clause

#include "tools/play/call_player.h"

#include <opus/opus.h>

#include <algorithm>
#include <utility>

#include "host/rtp_view.h"

namespace aiplc::tools {
namespace {

constexpr int64_t kFrameUs = 20000;
constexpr int64_t kFrameClock = kOpusClock / 50;
constexpr int64_t kLowPassDelay16K = 15;  // (31 - 1) / 2
constexpr int64_t kLowPassDelay48K = 45;  // (91 - 1) / 2

// Position of the first packet that arrives within its frame, on the 48 kHz clock.
int64_t OffsetOfFirstArrival(const OpusCall &call, const std::vector<bool> &lost) {
    for (size_t i = 0; i < call.packets.size(); ++i) {
        if (!lost[i]) return call.packets[i].timestamp % kFrameClock;
    }
    return 0;
}

AiPlcReceiverOptions ReceiverOf(const CallTimeline &timeline, AiPlcReceiverOptions options) {
    options.sampleRate = static_cast<uint32_t>(timeline.SampleRate());
    // Calls that were not captured come from senders that announce their pauses.
    options.expectPauses = timeline.Call().hasArrivalTimes ? 1 : 0;
    options.payloadType = timeline.Call().opusType;
    options.redPayloadType = timeline.Call().redType;
    return options;
}

}  // namespace

CallTimeline::CallTimeline(const OpusCall &call, std::vector<bool> lost, int sampleRate,
                           int jitterBufferMs)
    : m_call(&call),
      m_lost(std::move(lost)),
      m_sampleRate(sampleRate),
      // Without arrival times every packet comes at the start of its own frame.
      m_bufferUs(call.hasArrivalTimes ? int64_t{jitterBufferMs} * 1000 : kFrameUs - 1),
      m_frameSamples(sampleRate / 50),
      m_callFrames((call.span + kFrameClock - 1) / kFrameClock),
      m_samples((call.samples * sampleRate + kOpusClock / 2) / kOpusClock) {
    for (size_t i = 0; i < call.packets.size(); ++i) {
        if (call.packets[i].IsMissing()) m_lost[i] = true;
    }
    const bool is48K = sampleRate == 48000;
    if (!call.hasArrivalTimes) {
        m_startOffset = OffsetOfFirstArrival(call, m_lost) * sampleRate / kOpusClock;
    }
    m_delay = kLookAheadFrames * m_frameSamples - m_startOffset +
              call.delaySamples * sampleRate / kOpusClock;
    if (is48K) m_delay += AIPLC_BANK_DELAY;
    if (WidestBandwidth(call) == OPUS_BANDWIDTH_NARROWBAND) {
        m_delay += is48K ? kLowPassDelay48K : kLowPassDelay16K;
    }
}

int64_t CallTimeline::DeadlineUs(int64_t tick) const {
    return tick * kFrameUs + m_bufferUs;
}

int64_t CallTimeline::Ticks() const {
    const int64_t forAudio = (m_delay + m_samples + m_frameSamples - 1) / m_frameSamples;
    return std::max(forAudio, m_callFrames + kLookAheadFrames);
}

CallPlayer::CallPlayer(const CallTimeline &timeline, AiPlcReceiverOptions options)
    : m_timeline(timeline), m_receiver(ReceiverOf(timeline, options)) {}

const PlayedFrame &CallPlayer::Next() {
    const auto start = std::chrono::steady_clock::now();
    const std::vector<CallPacket> &packets = m_timeline.Call().packets;
    const int64_t deadlineUs = m_timeline.DeadlineUs(m_tick);
    for (; m_nextPacket < packets.size(); ++m_nextPacket) {
        const CallPacket &packet = packets[m_nextPacket];
        if (packet.arrivalUs > deadlineUs) break;
        if (m_timeline.Lost(m_nextPacket)) continue;
        const int64_t arrivalUs = m_timeline.Call().hasArrivalTimes ? packet.arrivalUs : -1;
        if (packet.redundant.empty()) {
            m_receiver.Push(packet.payload, packet.sequence, packet.timestamp, arrivalUs);
        } else {
            host::WriteRtp({.payloadType = static_cast<uint8_t>(m_timeline.Call().redType),
                            .sequence = packet.sequence,
                            .timestamp = packet.timestamp,
                            .ssrc = 0,
                            .payload = packet.redundant},
                           m_datagram);
            m_receiver.PushRtp(m_datagram, arrivalUs);
        }
    }
    ++m_tick;
    const PlayedFrame &frame = m_receiver.Pull();
    m_spent += std::chrono::steady_clock::now() - start;
    return frame;
}

bool IsConcealed(AiPlcFrameSource source) {
    switch (source) {
        case AIPLC_SOURCE_PARTIAL:
        case AIPLC_SOURCE_INTERPOLATED:
        case AIPLC_SOURCE_EXTRAPOLATED:
        case AIPLC_SOURCE_SECOND_LOOK:
        case AIPLC_SOURCE_CODEC:
        case AIPLC_SOURCE_MUTED:
        case AIPLC_SOURCE_LOST:
            return true;
        default:
            return false;
    }
}

}  // namespace aiplc::tools
