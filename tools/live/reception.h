// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RECEPTION_H
#define AIPLC_TOOLS_RECEPTION_H

#include <aiplc/receiver.h>

#include <cstdint>
#include <optional>
#include <random>

#include "tools/live/rtcp.h"
#include "tools/live/udp_socket.h"

namespace aiplc::tools {

// Tells the sender how its packets arrive: receiver reports (RFC 3550), every five seconds on
// average. They go to where its own reports come from, else to the port behind that of its packets,
// or to that very port where RTCP comes on the RTP port, or the session says so (RFC 5761).
class Reception {
  public:
    // rtcpPort: the sender's, where a session description says it.
    Reception(SocketPair &sockets, bool rtcpMux, std::optional<uint16_t> rtcpPort);

    // An RTP packet of the stream.
    void TakePacket(const UdpSocket::Datagram &datagram);
    // A datagram of either port that is RTCP.
    void TakeReport(const UdpSocket::Datagram &datagram, bool onRtpPort);

    // Sends a report when it is time for one, or when this is the last. Nothing before the first
    // packet.
    void Report(const AiPlcReceiverStatistics &statistics, int64_t nowUs, bool isLast);
    [[nodiscard]] int64_t NextUs() const { return m_nextUs; }

    [[nodiscard]] uint32_t Source() const { return m_source; }
    [[nodiscard]] int PayloadType() const { return m_payloadType; }
    [[nodiscard]] uint64_t ReportsSent() const { return m_sent; }
    // The sender has said goodbye and has not sent anything since.
    [[nodiscard]] bool HasLeft() const { return m_hasLeft; }

  private:
    [[nodiscard]] ReceptionReport Block(const AiPlcReceiverStatistics &statistics, int64_t nowUs);
    [[nodiscard]] int64_t Interval();

    SocketPair &m_sockets;
    bool m_rtcpMux;
    std::optional<uint16_t> m_rtcpPort;
    std::minstd_rand m_random;
    uint32_t m_ownSource;
    uint32_t m_source = 0;
    int m_payloadType = -1;
    uint32_t m_highest = 0;            // sequence number with its cycles
    std::optional<Address> m_from;     // of the packets
    std::optional<Address> m_reports;  // of the sender's reports
    uint32_t m_senderReport = 0;       // middle of its NTP time
    int64_t m_senderReportUs = 0;
    int64_t m_lostBefore = 0;  // at the report before
    uint64_t m_receivedBefore = 0;
    int64_t m_nextUs = 0;
    uint64_t m_sent = 0;
    bool m_hasLeft = false;
};

}  // namespace aiplc::tools

#endif
