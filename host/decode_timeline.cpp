// SPDX-License-Identifier: BSD-2-Clause

#include "host/decode_timeline.h"

#include <opus.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "host/stream_clock.h"

namespace aiplc::host {
namespace {

constexpr uint32_t kClockRate = 48000;
constexpr int64_t kLongestPacket = 5760;  // 120 ms
constexpr size_t kMaxSegments = 64;       // a frame and a packet in steps of 2.5 ms

// libopus stops sending behind ten SILK frames, of 20 or 10 ms, in which it finds no activity.
// Their flags may say so earlier: a sender with DTX was seen to send 24 of them.
constexpr int64_t kSilkFrame = 960;
constexpr int64_t kQuietBeforePause = 9;  // one more may have been lost
constexpr int64_t kQuietSentThrough = 50;

size_t SnapshotSlot(int64_t frame) {
    return static_cast<size_t>(frame) % static_cast<size_t>(DecodeTimeline::kSnapshots);
}

}  // namespace

DecodeTimeline::DecodeTimeline(uint32_t sampleRate, int complexity, bool useFec,
                               PacketBuffer &buffer, bool codecConceals)
    : m_unitsPerSample(kClockRate / sampleRate),
      m_frameSamples(Samples(kFrameUnits)),
      m_useFec(useFec),
      m_codecConceals(codecConceals),
      m_buffer(buffer),
      m_decoderMemory(static_cast<size_t>(opus_decoder_get_size(1))),
      m_decoder(reinterpret_cast<OpusDecoder *>(m_decoderMemory.data())),
      m_scratch(Samples(kLongestPacket)),
      m_frame(m_frameSamples) {
    const int result = opus_decoder_init(m_decoder, static_cast<opus_int32>(sampleRate), 1);
    if (result != OPUS_OK)
        throw std::runtime_error(std::string("Opus decoder: ") + opus_strerror(result));
    // Unknown to the decoders of libopus before 1.5, which have no such setting.
    (void)opus_decoder_ctl(m_decoder, OPUS_SET_COMPLEXITY(complexity));
    // All memory is taken here, so that decoding takes none.
    const size_t longest = m_frameSamples + m_scratch.size();
    m_state.pcm.reserve(longest);
    m_state.segments.reserve(kMaxSegments);
    for (Snapshot &snapshot : m_snapshots) {
        snapshot.decoder.resize(m_decoderMemory.size());
        snapshot.state.pcm.reserve(longest);
        snapshot.state.segments.reserve(kMaxSegments);
    }
}

DecodeTimeline::~DecodeTimeline() = default;

void DecodeTimeline::TakeSnapshot() {
    Snapshot &snapshot = m_snapshots[SnapshotSlot(m_state.frame)];
    snapshot.frame = m_state.frame;
    snapshot.state = m_state;
    snapshot.decoder = m_decoderMemory;
}

bool DecodeTimeline::CanRestore(int64_t frame) const {
    return frame >= 0 && m_snapshots[SnapshotSlot(frame)].frame == frame;
}

void DecodeTimeline::Restore(int64_t frame) {
    const Snapshot &snapshot = m_snapshots[SnapshotSlot(frame)];
    m_state = snapshot.state;
    std::ranges::copy(snapshot.decoder, m_decoderMemory.begin());
}

void DecodeTimeline::Restart() {
    for (Snapshot &snapshot : m_snapshots)
        snapshot.frame = -1;
    m_state.cursor = m_state.frame * kFrameUnits;
    m_state.audioEnd = m_state.cursor;
    m_state.sequence = BufferedPacket::kUnknownSequence;
    m_state.pausing = false;
    m_state.pcm.clear();
    m_state.segments.clear();
}

bool DecodeTimeline::IsNextSent(const BufferedPacket &packet) const {
    if (!packet.IsWhole() || m_state.sequence < 0) return false;
    if (packet.sequence >= 0) return packet.sequence == m_state.sequence + 1;
    return packet.start == m_state.packetEnd;
}

DecodedFrame DecodeTimeline::Next() {
    const int64_t end = (m_state.frame + 1) * kFrameUnits;
    while (m_state.cursor < end) {
        if (BufferedPacket *packet = m_buffer.Covering(m_state.cursor)) {
            DecodePacket(*packet);
        } else if (!FillGap(end)) {
            return {
                AIPLC_SOURCE_LOST, m_state.bandwidth, static_cast<uint32_t>(m_frameSamples), {}};
        }
    }
    return TakeFrame();
}

// Fills from the cursor to the next packet, at most to end, the end of the frame. False when that
// is the whole frame and it is lost.
bool DecodeTimeline::FillGap(int64_t end) {
    BufferedPacket *next = m_buffer.After(m_state.cursor);
    int64_t gapEnd = next == nullptr ? end : std::min(end, next->usableFrom);
    const bool nothingLost = next != nullptr && IsNextSent(*next);
    const bool taken = m_state.cursor < m_pauseUntil;
    if (taken) gapEnd = std::min(gapEnd, m_pauseUntil);
    const bool pause = m_state.pausing || nothingLost || taken;
    // Without a SILK frame before it the decoder would conceal instead.
    if (m_useFec && next != nullptr && next->OffersFec() && !nothingLost && !m_state.celtOnly) {
        if (next->FecStart() <= m_state.cursor) {
            DecodeFec(*next);
            return true;
        }
        gapEnd = std::min(gapEnd, next->FecStart());
    }
    const bool wholeFrame = m_state.cursor == end - kFrameUnits && gapEnd == end;
    if (wholeFrame && !pause) return false;
    ConcealUntil(gapEnd, pause ? AIPLC_SOURCE_DTX : AIPLC_SOURCE_CODEC);
    return true;
}

int64_t DecodeTimeline::PauseEnd(int64_t end, const BufferedPacket *next) const {
    const bool stops = m_state.pauseHabit == PauseHabit::stops;
    if (m_state.pauseHabit == PauseHabit::sendsThrough) return 0;
    // Audio without SILK data does not say whether it is speech.
    const bool quietEnough =
        m_state.celtOnly ? stops : m_state.quietFrames >= (stops ? 1 : kQuietBeforePause);
    if (!quietEnough) return 0;
    if (next == nullptr) return end;
    if (next->sequence < 0) return std::min(end, next->start);
    const int64_t missing = next->sequence - m_state.sequence - 1;
    return next->start - missing * std::max<int64_t>(next->info.duration, m_state.packetDuration);
}

// packet: about to be decoded.
void DecodeTimeline::LearnPauseHabit(const BufferedPacket &packet) {
    const bool isNext = IsNextSent(packet);
    if (isNext && !m_state.pausing && packet.start >= m_state.packetEnd + kFrameUnits)
        m_state.pauseHabit = PauseHabit::stops;
    if (!packet.info.quiet || !isNext || packet.start != m_state.packetEnd) m_state.quietFrames = 0;
    if (packet.info.quiet) {
        const int64_t silkFrame = std::min<int64_t>(packet.info.frameDuration, kSilkFrame);
        m_state.quietFrames += packet.info.duration / silkFrame;
    }
    if (m_state.quietFrames > kQuietSentThrough && m_state.pauseHabit == PauseHabit::unknown)
        m_state.pauseHabit = PauseHabit::sendsThrough;
    m_state.packetEnd = packet.End();
    m_state.packetDuration = packet.info.duration;
}

int DecodeTimeline::DecodeInto(const BufferedPacket *packet, int64_t units, bool fec) {
    const unsigned char *data = packet == nullptr ? nullptr : packet->payload.data();
    const auto size = static_cast<opus_int32>(packet == nullptr ? 0 : packet->payload.size());
    return opus_decode(m_decoder, data, size, m_scratch.data(), static_cast<int>(Samples(units)),
                       fec ? 1 : 0);
}

void DecodeTimeline::DecodePacket(BufferedPacket &packet) {
    const int samples = DecodeInto(&packet, packet.info.duration, false);
    if (samples != static_cast<int>(Samples(packet.info.duration))) {
        if (!packet.isCopy) ++m_undecodable;
        m_buffer.Erase(packet);
        return;
    }
    packet.used = true;
    const bool isNext = IsNextSent(packet);
    LearnPauseHabit(packet);
    m_state.sequence = isNext ? m_state.sequence + 1 : packet.sequence;
    m_state.pausing = packet.info.pause;
    m_state.celtOnly = packet.info.celtOnly;
    m_state.bandwidth = packet.info.bandwidth;

    const int64_t from = m_state.cursor;
    const int64_t lateUntil = std::min(packet.lateUntil, packet.End());
    const AiPlcFrameSource received = packet.isCopy ? AIPLC_SOURCE_REDUNDANT : AIPLC_SOURCE_DECODED;
    const AiPlcFrameSource onTime = packet.info.pause ? AIPLC_SOURCE_DTX : received;
    Append(from - packet.start, packet.End(), onTime);
    if (lateUntil > from && !packet.isCopy) {
        m_state.segments.back() = {lateUntil, AIPLC_SOURCE_LATE, packet.info.bandwidth};
        if (lateUntil < packet.End())
            m_state.segments.push_back({packet.End(), onTime, packet.info.bandwidth});
    }
    m_state.audioEnd = m_state.cursor;
}

// Recovers the frame before the packet's first one.
void DecodeTimeline::DecodeFec(BufferedPacket &packet) {
    const int samples = DecodeInto(&packet, packet.info.frameDuration, true);
    if (samples != static_cast<int>(Samples(packet.info.frameDuration))) {
        packet.info.redundancy = false;
        return;
    }
    packet.fecUsed = true;
    m_state.sequence = std::max(packet.sequence - 1, BufferedPacket::kUnknownSequence);
    m_state.pausing = false;
    m_state.packetEnd = packet.start;
    m_state.bandwidth = packet.info.bandwidth;
    Append(m_state.cursor - packet.FecStart(), packet.start, AIPLC_SOURCE_FEC);
    m_state.audioEnd = m_state.cursor;
}

void DecodeTimeline::ConcealUntil(int64_t end, AiPlcFrameSource source) {
    const int64_t units = end - m_state.cursor;
    const bool silent = !m_codecConceals && source == AIPLC_SOURCE_CODEC;
    if (silent || DecodeInto(nullptr, units, false) != static_cast<int>(Samples(units)))
        std::fill_n(m_scratch.begin(), Samples(units), int16_t{0});
    Append(0, end, source);
    if (source == AIPLC_SOURCE_DTX) m_state.audioEnd = m_state.cursor;
}

// Takes the scratch audio over, less what lies before the cursor.
void DecodeTimeline::Append(int64_t skippedUnits, int64_t end, AiPlcFrameSource source) {
    const auto begin = m_scratch.begin() + static_cast<std::ptrdiff_t>(Samples(skippedUnits));
    m_state.pcm.insert(m_state.pcm.end(), begin,
                       begin + static_cast<std::ptrdiff_t>(Samples(end - m_state.cursor)));
    m_state.segments.push_back({end, source, m_state.bandwidth});
    m_state.cursor = end;
}

void DecodeTimeline::Conceal(std::span<int16_t> frame) {
    ConcealUntil(m_state.cursor + kFrameUnits, AIPLC_SOURCE_CODEC);
    std::ranges::copy(TakeFrame().samples, frame.begin());
}

// Cuts the finished frame off and tells what it was made of.
DecodedFrame DecodeTimeline::TakeFrame() {
    const int64_t end = (m_state.frame + 1) * kFrameUnits;
    std::array<int64_t, AIPLC_FRAME_SOURCES> units{};
    DecodedFrame frame;
    int64_t position = end - kFrameUnits;
    for (const Segment &segment : m_state.segments) {
        if (position >= end) break;
        const int64_t segmentEnd = std::min(segment.end, end);
        units[static_cast<size_t>(segment.source)] += segmentEnd - position;
        position = segmentEnd;
        frame.bandwidth = segment.bandwidth;
    }
    std::erase_if(m_state.segments, [end](const Segment &segment) { return segment.end <= end; });

    const auto length = [&units](AiPlcFrameSource source) {
        return units[static_cast<size_t>(source)];
    };
    frame.concealed = static_cast<uint32_t>(Samples(length(AIPLC_SOURCE_CODEC)));
    frame.source = AIPLC_SOURCE_DECODED;
    if (frame.concealed == m_frameSamples) {
        frame.source = AIPLC_SOURCE_CODEC;
    } else if (frame.concealed > 0) {
        frame.source = AIPLC_SOURCE_PARTIAL;
    } else if (length(AIPLC_SOURCE_FEC) > 0) {
        frame.source = AIPLC_SOURCE_FEC;
    } else if (length(AIPLC_SOURCE_REDUNDANT) > 0) {
        frame.source = AIPLC_SOURCE_REDUNDANT;
    } else if (length(AIPLC_SOURCE_LATE) > 0) {
        frame.source = AIPLC_SOURCE_LATE;
    } else if (length(AIPLC_SOURCE_DECODED) == 0) {
        frame.source = AIPLC_SOURCE_DTX;
    }

    const auto cut = m_state.pcm.begin() + static_cast<std::ptrdiff_t>(m_frameSamples);
    std::copy(m_state.pcm.begin(), cut, m_frame.begin());
    m_state.pcm.erase(m_state.pcm.begin(), cut);
    ++m_state.frame;
    frame.samples = m_frame;
    return frame;
}

}  // namespace aiplc::host
