// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/packet_capture.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"

namespace aiplc::tools {
namespace {

constexpr int64_t kLastSecond = 9'000'000'000;  // so that nanoseconds fit

// Formats that libpcap reads: pcap and pcapng.
class PacketCapture : public RtpRecording {
  public:
    explicit PacketCapture(const InputFile &input) : m_name(input.Name()) {
        char error[PCAP_ERRBUF_SIZE] = "";
        std::FILE *file = input.Duplicate();
        m_pcap.reset(
            pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, error));
        if (!m_pcap) {
            std::fclose(file);
            throw Failure(m_name, std::string("cannot be read: ") + error +
                                      "; give an intact pcap or pcapng file");
        }
        m_linkType = pcap_datalink(m_pcap.get());
        if (!IsKnownLinkType(m_linkType)) {
            const char *name = pcap_datalink_val_to_name(m_linkType);
            throw Failure(m_name, std::string("captured on link type ") +
                                      (name != nullptr ? name : std::to_string(m_linkType)) +
                                      "; Ethernet, raw IP, Linux cooked and loopback can be read");
        }
    }

    bool Next(RecordedPacket &packet) override {
        for (;;) {
            ThrowIfInterrupted();
            pcap_pkthdr *header = nullptr;
            const u_char *bytes = nullptr;
            const int result = pcap_next_ex(m_pcap.get(), &header, &bytes);
            if (result == PCAP_ERROR_BREAK || (result != 1 && AtEndOfFile())) return false;
            ++m_frames;
            if (result != 1) {
                throw Failure(m_name, "damaged at frame " + std::to_string(m_frames) + ": " +
                                          pcap_geterr(m_pcap.get()) +
                                          "; give an intact pcap or pcapng file");
            }
            const auto udp = FindUdpPayload(m_linkType, {bytes, header->caplen});
            if (!udp) continue;
            const auto rtp = host::ParseRtp(udp->bytes);
            if (!rtp) continue;
            packet.rtp = *rtp;
            packet.cut = udp->cut || header->caplen < header->len;
            packet.from = udp->from;
            packet.to = udp->to;
            // The field for microseconds holds nanoseconds, as asked for.
            const int64_t seconds = std::clamp<int64_t>(header->ts.tv_sec, 0, kLastSecond);
            packet.timeNs = seconds * 1'000'000'000 + header->ts.tv_usec;
            return true;
        }
    }

    [[nodiscard]] bool StopsEarly() const override { return m_stopsEarly; }

  private:
    struct Close {
        void operator()(pcap_t *pcap) const { pcap_close(pcap); }
    };

    // After an error: the file ends within the block that was being read.
    bool AtEndOfFile() {
        m_stopsEarly = std::feof(pcap_file(m_pcap.get())) != 0;
        return m_stopsEarly;
    }

    std::string m_name;
    std::unique_ptr<pcap_t, Close> m_pcap;
    int m_linkType = 0;
    uint64_t m_frames = 0;
    bool m_stopsEarly = false;
};

}  // namespace

std::unique_ptr<RtpRecording> OpenPacketCapture(const InputFile &input) {
    return std::make_unique<PacketCapture>(input);
}

}  // namespace aiplc::tools
