// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_SPEECH_H
#define AIPLC_BENCH_SPEECH_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct OpusDecoder;

namespace aiplc::bench {

// Made-up speech that costs a codec what speech does: syllables at four a second, voiced ones with
// the harmonics of a gliding pitch and noise, every third one noise alone.
std::vector<int16_t> MakeSpeech(int rate, int seconds);

// Ten seconds of it as an Opus call of 20 ms packets at 24 kb/s, fullband at 48 kHz and wideband at
// 16 kHz, over and over.
class OpusCall {
  public:
    // Throws std::runtime_error, also when the encoder chose another bandwidth.
    explicit OpusCall(int rate);

    // Decodes the next packet into a frame of 20 ms; returns the nanoseconds that libopus took.
    int64_t DecodeNext();
    const std::vector<int16_t> &Frame() const { return m_frame; }
    uint32_t Bandwidth() const { return m_bandwidth; }

  private:
    struct DecoderDeleter {
        void operator()(OpusDecoder *decoder) const;
    };

    uint32_t m_bandwidth;
    std::vector<int16_t> m_frame;
    std::vector<std::vector<uint8_t>> m_packets;
    std::unique_ptr<OpusDecoder, DecoderDeleter> m_decoder;
    size_t m_next = 0;
};

}  // namespace aiplc::bench

#endif
