// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/rtpdump.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"

namespace aiplc::tools {
namespace {

constexpr std::string_view kMagic = "#!rtpplay1.0 ";
constexpr size_t kLongestFirstLine = 128;
constexpr size_t kFileHeaderBytes = 16;  // start, source address and port, padding
constexpr size_t kHeaderBytes = 8;       // of a packet: length, RTP length, milliseconds

uint32_t Word(const uint8_t *bytes) {
    return (uint32_t{bytes[0]} << 8) | uint32_t{bytes[1]};
}

class RtpDump : public RtpRecording {
  public:
    explicit RtpDump(const InputFile &input) : m_name(input.Name()), m_file(input.Duplicate()) {
        size_t length = 0;
        for (int c = 0; c != '\n'; ++length) {
            c = std::fgetc(m_file.get());
            if (c == EOF || length == kLongestFirstLine)
                throw Failure(m_name, "damaged in the first line; give an intact rtpdump file");
        }
        std::array<uint8_t, kFileHeaderBytes> header{};
        if (std::fread(header.data(), 1, header.size(), m_file.get()) < header.size())
            throw Failure(m_name, "cut short in its header; give the whole rtpdump file");
        std::memcpy(m_from.address.data(), &header[8], 4);
        m_from.addressBytes = 4;
        m_from.port = static_cast<uint16_t>(Word(&header[12]));
    }

    bool Next(RecordedPacket &packet) override {
        std::array<uint8_t, kHeaderBytes> header{};
        for (;;) {
            ThrowIfInterrupted();
            const size_t got = std::fread(header.data(), 1, header.size(), m_file.get());
            if (got == 0) return false;
            m_stopsEarly = got < header.size();
            if (m_stopsEarly) return false;
            ++m_packets;
            const uint32_t length = Word(header.data());
            const uint32_t rtpLength = Word(&header[2]);  // 0: RTCP
            if (length < kHeaderBytes) {
                throw Failure(m_name, "damaged at packet " + std::to_string(m_packets) +
                                          "; give an intact rtpdump file");
            }
            m_bytes.resize(length - kHeaderBytes);
            m_stopsEarly =
                std::fread(m_bytes.data(), 1, m_bytes.size(), m_file.get()) < m_bytes.size();
            if (m_stopsEarly) return false;
            const auto rtp = host::ParseRtp(m_bytes);
            if (rtpLength == 0 || !rtp) continue;
            packet.rtp = *rtp;
            packet.cut = rtpLength > m_bytes.size();
            packet.from = m_from;
            packet.to = {};
            const uint32_t milliseconds = (Word(&header[4]) << 16) | Word(&header[6]);
            packet.timeNs = int64_t{milliseconds} * 1'000'000;
            return true;
        }
    }

    [[nodiscard]] bool StopsEarly() const override { return m_stopsEarly; }

  private:
    struct Close {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };

    std::string m_name;
    std::unique_ptr<std::FILE, Close> m_file;
    Endpoint m_from;
    std::vector<uint8_t> m_bytes;  // of the packet
    uint64_t m_packets = 0;
    bool m_stopsEarly = false;
};

}  // namespace

bool IsRtpDump(std::span<const uint8_t> head) {
    return head.size() >= kMagic.size() &&
           std::memcmp(head.data(), kMagic.data(), kMagic.size()) == 0;
}

std::unique_ptr<RtpRecording> OpenRtpDump(const InputFile &input) {
    return std::make_unique<RtpDump>(input);
}

}  // namespace aiplc::tools
