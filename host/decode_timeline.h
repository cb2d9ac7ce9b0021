// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_DECODE_TIMELINE_H
#define AIPLC_HOST_DECODE_TIMELINE_H

#include <aiplc/aiplc.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "host/output_frame.h"
#include "host/packet_buffer.h"

struct OpusDecoder;

namespace aiplc::host {

// One 20 ms frame as the decoder gave it.
struct DecodedFrame {
    // decoded, late, redundant, fec, dtx, partial, codec or lost
    AiPlcFrameSource source = AIPLC_SOURCE_LOST;
    uint32_t bandwidth = 0;            // OPUS_BANDWIDTH_*
    uint32_t concealed = 0;            // samples that the codec concealed
    std::span<const int16_t> samples;  // valid until the timeline's next call

    bool IsLost() const { return source == AIPLC_SOURCE_LOST; }
};

// Decodes the packets of a buffer into a gapless run of 20 ms frames and can go back to any of the
// last kSnapshots frames, to decode them again when a packet arrives late. The decoder's whole
// state is one flat block, so that a copy of it is a snapshot.
class DecodeTimeline {
  public:
    // The longest packet whose end can still be rewritten starts this many frames back.
    static constexpr int64_t kSnapshots = 10;

    // Throws std::runtime_error when the decoder cannot be made. buffer outlives the timeline.
    // codecConceals: false puts silence in place of lost audio: the decoder is not run for
    // it, so its state does not advance. Pauses of the sender are decoded in either case.
    DecodeTimeline(uint32_t sampleRate, int complexity, bool useFec, PacketBuffer &buffer,
                   bool codecConceals = true);
    ~DecodeTimeline();
    DecodeTimeline(const DecodeTimeline &) = delete;
    DecodeTimeline &operator=(const DecodeTimeline &) = delete;

    // The next frame. When nothing of it has arrived and the sender is not pausing, the frame is
    // lost: the caller then has it made by Conceal.
    DecodedFrame Next();
    // Has the codec make the frame that Next reported lost. Writes one frame.
    void Conceal(std::span<int16_t> frame);

    // Remembers the state before the next frame; Restore goes back to it.
    void TakeSnapshot();
    // False when that frame is too old or lies before the last Restart.
    bool CanRestore(int64_t frame) const;
    void Restore(int64_t frame);

    // Drops what was decoded ahead: the sender's clock continues somewhere else.
    void Restart();

    int64_t NextFrame() const { return m_state.frame; }
    int64_t Cursor() const { return m_state.cursor; }      // decoded up to here, 48 kHz
    int64_t AudioEnd() const { return m_state.audioEnd; }  // concealed since here

    // Nothing was sent between the last decoded packet and this one.
    bool IsNextSent(const BufferedPacket &packet) const;

    // Up to where the silence on the wire since AudioEnd is taken for a pause that the sender did
    // not announce: end or, where next, the first packet behind it, is there, the beginning of what
    // its number tells to be lost. 0 behind speech, and where the sender does not stop in pauses.
    int64_t PauseEnd(int64_t end, const BufferedPacket *next) const;
    // From now on that silence is a pause up to end.
    void TakeForPause(int64_t end) { m_pauseUntil = end; }

    uint64_t Undecodable() const { return m_undecodable; }

  private:
    // A run of audio of one origin.
    struct Segment {
        int64_t end;  // it begins where the one before it ends
        AiPlcFrameSource source;
        uint32_t bandwidth;
    };
    // How the sender treats pauses in speech.
    enum class PauseHabit {
        unknown,
        sendsThrough,  // has sent a pause longer than senders with DTX do
        stops,         // has stopped without a word, as the sequence number behind it said
    };
    struct State {
        int64_t frame = 0;
        int64_t cursor = 0;
        int64_t audioEnd = 0;
        int64_t sequence = BufferedPacket::kUnknownSequence;  // of the last decoded packet
        bool pausing = false;                                 // the last packet announced a pause
        bool celtOnly = false;                                // the last packet had no SILK data
        int64_t packetEnd = 0;                                // of the last packet
        int64_t packetDuration = 0;
        int64_t quietFrames = 0;  // SILK frames without speech at its end, as far as they tell
        PauseHabit pauseHabit = PauseHabit::unknown;
        uint32_t bandwidth = 0;
        std::vector<int16_t> pcm;       // from the start of frame to cursor
        std::vector<Segment> segments;  // of pcm
    };
    struct Snapshot {
        int64_t frame = -1;
        State state;
        std::vector<std::byte> decoder;
    };

    size_t Samples(int64_t units) const { return static_cast<size_t>(units / m_unitsPerSample); }
    bool FillGap(int64_t end);
    void DecodePacket(BufferedPacket &packet);
    void DecodeFec(BufferedPacket &packet);
    int DecodeInto(const BufferedPacket *packet, int64_t units, bool fec);
    void LearnPauseHabit(const BufferedPacket &packet);
    void ConcealUntil(int64_t end, AiPlcFrameSource source);
    void Append(int64_t skippedUnits, int64_t end, AiPlcFrameSource source);
    DecodedFrame TakeFrame();

    int64_t m_unitsPerSample;
    size_t m_frameSamples;
    bool m_useFec;
    bool m_codecConceals;
    PacketBuffer &m_buffer;
    std::vector<std::byte> m_decoderMemory;
    OpusDecoder *m_decoder;  // in m_decoderMemory
    State m_state;
    std::array<Snapshot, kSnapshots> m_snapshots;  // by frame modulo kSnapshots
    int64_t m_pauseUntil = 0;                      // lost audio before this position is a pause
    std::vector<int16_t> m_scratch;                // one packet
    std::vector<int16_t> m_frame;                  // handed out by Next
    uint64_t m_undecodable = 0;
};

}  // namespace aiplc::host

#endif
