// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/reception.h"

#include <algorithm>
#include <cmath>

#include "host/rtp_view.h"

namespace aiplc::tools {
namespace {

constexpr double kIntervalUs = 5e6;  // RFC 3550 6.2, the least
// Corrects for the mean that drawing the interval anew would have (RFC 3550 6.3.1).
constexpr double kCompensation = 1.21828;
constexpr int32_t kMostLost = 0x7FFFFF;

}  // namespace

Reception::Reception(SocketPair &sockets, bool rtcpMux, std::optional<uint16_t> rtcpPort)
    : m_sockets(sockets),
      m_rtcpMux(rtcpMux),
      m_rtcpPort(rtcpPort),
      m_random(std::random_device{}()) {
    m_ownSource = std::random_device{}();
}

int64_t Reception::Interval() {
    const double share = std::uniform_real_distribution<double>(0.5, 1.5)(m_random);
    return std::llround(kIntervalUs * share / kCompensation);
}

void Reception::TakePacket(const UdpSocket::Datagram &datagram) {
    const auto packet = host::ParseRtp(datagram.bytes);
    if (!packet) return;
    m_payloadType = packet->payloadType;
    m_hasLeft = false;
    if (!m_from || packet->ssrc != m_source) {
        m_source = packet->ssrc;
        m_highest = packet->sequence;
        m_senderReport = 0;
        // The first report is due after half an interval.
        if (!m_from) m_nextUs = datagram.arrivalUs + Interval() / 2;
    }
    m_from = datagram.from;
    const auto step = static_cast<int16_t>(packet->sequence - static_cast<uint16_t>(m_highest));
    if (step > 0) m_highest += static_cast<uint32_t>(step);
}

void Reception::TakeReport(const UdpSocket::Datagram &datagram, bool onRtpPort) {
    const auto report = ParseRtcp(datagram.bytes);
    if (!report || (m_from && report->ssrc != m_source)) return;
    if (onRtpPort) m_rtcpMux = true;
    if (!onRtpPort) m_reports = datagram.from;
    if (report->sender) {
        m_senderReport = static_cast<uint32_t>(report->sender->ntp >> 16);
        m_senderReportUs = datagram.arrivalUs;
    }
    if (report->bye && m_from) m_hasLeft = true;
}

ReceptionReport Reception::Block(const AiPlcReceiverStatistics &statistics, int64_t nowUs) {
    ReceptionReport block;
    block.ssrc = m_source;
    block.highestSequence = m_highest;
    block.jitter = static_cast<uint32_t>(std::min(statistics.jitter * 48000, 4e9));
    block.lost = static_cast<int32_t>(
        std::clamp<int64_t>(statistics.packetsLost, -kMostLost - 1, kMostLost));
    const int64_t lost = statistics.packetsLost - m_lostBefore;
    const int64_t expected =
        static_cast<int64_t>(statistics.packetsReceived - m_receivedBefore) + lost;
    if (lost > 0 && expected > 0)
        block.fractionLost = static_cast<uint8_t>(std::min<int64_t>(lost * 256 / expected, 255));
    m_lostBefore = statistics.packetsLost;
    m_receivedBefore = statistics.packetsReceived;
    if (m_senderReport != 0) {
        block.lastSenderReport = m_senderReport;
        const auto since = static_cast<double>(nowUs - m_senderReportUs) * 65536 / 1e6;
        block.sinceSenderReport = static_cast<uint32_t>(std::min(since, 4e9));
    }
    return block;
}

void Reception::Report(const AiPlcReceiverStatistics &statistics, int64_t nowUs, bool isLast) {
    if (!m_from || (nowUs < m_nextUs && !isLast)) return;
    m_nextUs = nowUs + Interval();
    UdpSocket *socket = m_rtcpMux || !m_sockets.rtcp ? &m_sockets.rtp : &*m_sockets.rtcp;
    Address to = *m_from;
    if (!m_rtcpMux) {
        const auto next = static_cast<uint16_t>(m_from->Port() + 1);
        to = m_reports.value_or(m_from->WithPort(m_rtcpPort.value_or(next)));
    }
    const RtcpReport report{.ssrc = m_ownSource,
                            .sender = std::nullopt,
                            .blocks = {Block(statistics, nowUs)},
                            .bye = isLast};
    if (socket->Send(RtcpBytes(report, "aiplc"), to)) ++m_sent;
}

}  // namespace aiplc::tools
