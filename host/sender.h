// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_SENDER_H
#define AIPLC_HOST_SENDER_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

#include "host/rtp_packet.h"

struct OpusEncoder;

namespace aiplc::host {

enum class SenderApplication { voip, audio, lowDelay };

struct SenderOptions {
    uint32_t sampleRate = 48000;  // of the PCM: 8000, 12000, 16000, 24000 or 48000
    int bitrate = 24000;          // bit/s, 6000..510000
    int packetMs = 20;            // 10, 20, 40 or 60
    bool fec = false;             // in-band redundancy; needs expectedLossPercent > 0 to appear
    int expectedLossPercent = 0;  // 0..100
    int redundancy = 0;    // 0..4: each packet carries copies of so many before it (RFC 2198)
    bool dtx = false;      // stop sending in pauses
    int maxBandwidth = 0;  // OPUS_BANDWIDTH_NARROWBAND (1101)..FULLBAND (1105); 0 = free
    int complexity = 10;   // 0..10
    SenderApplication application = SenderApplication::voip;
    uint16_t firstSequenceNumber = 0;
    uint32_t firstTimestamp = 0;
};

// The sending end of one Opus call: mono PCM in, RTP packets out. One thread.
//
// In a pause with DTX the first packet of at most 2 bytes is sent and the ones like it after it are
// not; timestamps go on and sequence numbers count sent packets only (RFC 7587 3.1.3).
//
// Copies go from the oldest to the newest. One of more than 1023 bytes or 341 ms before its packet
// has no room in the header of redundant audio and is left out.
class Sender {
  public:
    // Throws std::runtime_error for options out of range.
    explicit Sender(const SenderOptions &options);
    ~Sender();
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    // Appends PCM of any length and returns the packets it completed.
    std::vector<RtpPacket> Push(std::span<const int16_t> pcm);

    // Completes the last packet with silence; empty when nothing is pending.
    std::vector<RtpPacket> Flush();

    // Samples by which decoded audio trails the PCM, at the sender's rate.
    int LookAhead() const { return m_lookAhead; }

  private:
    struct EncoderDeleter {
        void operator()(OpusEncoder *encoder) const;
    };

    std::vector<RedundantCopy> Copies() const;
    void EncodePacket(std::span<const int16_t> pcm, std::vector<RtpPacket> &packets);

    std::unique_ptr<OpusEncoder, EncoderDeleter> m_encoder;
    size_t m_packetSamples;
    uint32_t m_timestampStep;  // 48 kHz clock per packet
    int m_lookAhead = 0;
    uint16_t m_sequenceNumber;
    uint32_t m_timestamp;
    bool m_pausing = false;  // the last encoded packet had at most 2 bytes
    size_t m_redundancy;
    std::deque<RtpPacket> m_sent;  // the last m_redundancy packets, without copies
    std::vector<int16_t> m_pending;
};

}  // namespace aiplc::host

#endif
