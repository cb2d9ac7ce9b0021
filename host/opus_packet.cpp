// SPDX-License-Identifier: BSD-2-Clause

#include "host/opus_packet.h"

#include <opus.h>

#include <array>

namespace aiplc::host {
namespace {

constexpr int kClockRate = 48000;
constexpr int kMaxFrames = 48;
constexpr size_t kPauseBytes = 2;

// TOC fields, RFC 6716 3.1: five bits of configuration, one of stereo, two of frame count code.
constexpr int kFirstCeltConfig = 16;
constexpr int kStereoBit = 0x04;

int TocConfig(uint8_t toc) {
    return toc >> 3;
}

// The flags of an Opus frame with SILK data are its first bits (RFC 6716 4.2.3): for each channel
// one voice activity flag per SILK frame, then one flag that tells whether redundancy follows.
// Coded first and with even odds, they stand in the first byte as plain bits, most significant
// first.
class SilkFlags {
  public:
    SilkFlags(uint8_t flags, int silkFrames, bool stereo)
        : m_flags(flags), m_silkFrames(silkFrames), m_stereo(stereo) {}

    bool Redundancy() const { return Bit(m_silkFrames) || (m_stereo && Bit(2 * m_silkFrames + 1)); }
    // Of the last SILK frame, in either channel.
    bool Speech() const { return Bit(m_silkFrames - 1) || (m_stereo && Bit(2 * m_silkFrames)); }

  private:
    bool Bit(int index) const { return ((m_flags >> (7 - index)) & 1) != 0; }

    uint8_t m_flags;
    int m_silkFrames;
    bool m_stereo;
};

}  // namespace

std::optional<OpusPacketInfo> ParseOpusPacket(std::span<const uint8_t> packet) {
    if (packet.empty() || packet.size() > kMaxOpusPacketBytes) return std::nullopt;
    uint8_t toc = 0;
    std::array<const unsigned char *, kMaxFrames> frames{};
    std::array<opus_int16, kMaxFrames> sizes{};
    const int count = opus_packet_parse(packet.data(), static_cast<opus_int32>(packet.size()), &toc,
                                        frames.data(), sizes.data(), nullptr);
    if (count <= 0) return std::nullopt;

    OpusPacketInfo info;
    info.frameDuration = opus_packet_get_samples_per_frame(packet.data(), kClockRate);
    info.duration = count * info.frameDuration;
    info.bandwidth = static_cast<uint32_t>(opus_packet_get_bandwidth(packet.data()));
    info.celtOnly = TocConfig(toc) >= kFirstCeltConfig;
    info.pause = packet.size() <= kPauseBytes;
    if (!info.celtOnly) {
        constexpr int32_t kSilkFrame =
            kClockRate / 50;  // 20 ms; an Opus frame of 10 ms has one too
        const int silkFrames =
            info.frameDuration <= kSilkFrame ? 1 : info.frameDuration / kSilkFrame;
        const bool stereo = (toc & kStereoBit) != 0;
        const auto last = static_cast<size_t>(count - 1);
        if (sizes[0] > 0) info.redundancy = SilkFlags(*frames[0], silkFrames, stereo).Redundancy();
        info.quiet = sizes[last] == 0 || !SilkFlags(*frames[last], silkFrames, stereo).Speech();
    }
    return info;
}

}  // namespace aiplc::host
