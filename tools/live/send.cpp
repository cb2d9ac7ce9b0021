// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/send.h"

#include <aiplc/aiplc.h>
#include <poll.h>

#include <array>
#include <cstdio>
#include <memory>
#include <random>

#include "host/rtp_view.h"
#include "tools/input/call_loader.h"
#include "tools/live/rtcp.h"
#include "tools/live/session_description.h"
#include "tools/live/udp_socket.h"
#include "tools/loss/packet_losses.h"
#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/log_lines.h"
#include "tools/shell/output_file.h"

namespace aiplc::tools {
namespace {

constexpr int64_t kReportIntervalUs = 5'000'000;  // RFC 3550 6.2
constexpr int64_t kLongestWaitUs = 250'000;

Address DestinationOf(const std::string &text) {
    const auto place = ParseHostPort(text);
    if (!place || place->first.empty() || place->second == 0)
        throw UsageError("'" + text +
                         "' is no destination; give HOST:PORT, such as 127.0.0.1:5004 "
                         "or [::1]:5004");
    return Resolve(place->first, place->second);
}

LoadedCall LoadFor(const SendOptions &given, std::string &name) {
    InputFile input = InputFile::Open(given.input);
    const InputKind kind = CheckedKind(input, given);
    CallOptions options = given;
    options.lossExpected = given.loss.lossPercent;
    name = input.Name();
    return LoadCall(input, kind, WithDefaults(options, kind));
}

// The payload of a packet of redundant audio (RFC 2198, section 3) with all blocks of this type.
std::vector<uint8_t> WithBlockType(std::vector<uint8_t> payload, int type) {
    constexpr uint8_t kMoreFollow = 0x80;
    constexpr size_t kHeaderBytes = 4;
    for (size_t at = 0; at < payload.size(); at += kHeaderBytes) {
        const bool isLast = (payload[at] & kMoreFollow) == 0;
        payload[at] = static_cast<uint8_t>((payload[at] & kMoreFollow) | type);
        if (isLast) break;
    }
    return payload;
}

class LiveSender {
  public:
    LiveSender(const SendOptions &options, const LoadedCall &loaded, const Address &destination,
               std::string inputName)
        : m_options(options),
          m_call(loaded.call),
          m_destination(destination),
          m_inputName(std::move(inputName)),
          m_sockets(OpenPair(Resolve(destination.IsVersion6() ? "::" : "0.0.0.0", 0))),
          m_losses(MakeLossModel(options.loss)),
          m_random(options.loss.seed.value_or(1)) {
        std::random_device entropy;
        m_ssrc = options.ssrc.value_or(entropy());
        m_firstSequence = static_cast<uint16_t>(entropy());
        m_firstTimestamp = entropy();
    }

    void Run() {
        try {
            do {
                SendOnce();
            } while (m_options.loop && !m_isOver);
        } catch (const Interrupted &) {
            // The end that was asked for.
        }
        Report(SteadyUs(), true);
        if (!m_options.quiet) PrintEnd();
    }

  private:
    void SendOnce() {
        const PacketLosses losses = DrawLosses(m_call, m_losses.get(), m_inputName);
        size_t reached = losses.lost.size();
        for (const Departure &departure :
             Departures(m_call, losses.lost, m_options.disturbance, m_random)) {
            const int64_t at = m_startUs + m_roundUs + departure.atUs;
            if (m_options.duration &&
                static_cast<double>(at - m_startUs) > *m_options.duration * 1e6) {
                m_isOver = true;
                reached = departure.packet;
                break;
            }
            WaitUntil(at);
            SendPacket(m_call.packets[departure.packet]);
        }
        for (size_t i = 0; i < reached; ++i)
            m_lost += losses.lost[i] || m_call.packets[i].IsMissing() ? 1U : 0U;
        const CallPacket &first = m_call.packets.front();
        const CallPacket &last = m_call.packets.back();
        m_roundUs += m_call.span * 1000 / (kOpusClock / 1000);
        m_firstTimestamp += static_cast<uint32_t>(m_call.span);
        m_firstSequence =
            static_cast<uint16_t>(m_firstSequence + last.sequence - first.sequence + 1);
    }

    void SendPacket(const CallPacket &packet) {
        const CallPacket &first = m_call.packets.front();
        const auto sequence =
            static_cast<uint16_t>(m_firstSequence + packet.sequence - first.sequence);
        m_timestamp = m_firstTimestamp + packet.timestamp - first.timestamp;
        m_timestampUs = SteadyUs();
        const bool isRed = !packet.redundant.empty();
        const int type = isRed ? m_options.redPayloadType : m_options.payloadType;
        const std::vector<uint8_t> payload =
            isRed ? WithBlockType(packet.redundant, m_options.payloadType) : packet.payload;
        host::WriteRtp({.payloadType = static_cast<uint8_t>(type),
                        .sequence = sequence,
                        .timestamp = m_timestamp,
                        .ssrc = m_ssrc,
                        .payload = payload},
                       m_bytes);
        if (!m_sockets.rtp.Send(m_bytes, m_destination)) return;
        ++m_packets;
        m_payloadBytes += static_cast<uint32_t>(payload.size());
        if (m_packets == 1) Report(m_timestampUs, false);
    }

    void WaitUntil(int64_t at) {
        for (int64_t now = SteadyUs(); now < at; now = SteadyUs()) {
            ThrowIfInterrupted();
            if (m_packets > 0 && now >= m_nextReportUs) Report(now, false);
            const int64_t us = std::min(at - now, kLongestWaitUs);
            std::array<pollfd, 2> ready = {
                {{m_sockets.rtp.Descriptor(), POLLIN, 0},
                 {m_sockets.rtcp ? m_sockets.rtcp->Descriptor() : -1, POLLIN, 0}}};
            const timespec limit{us / 1'000'000, us % 1'000'000 * 1000};
            (void)ppoll(ready.data(), ready.size(), &limit, nullptr);
            TakeReports(m_sockets.rtp);
            if (m_sockets.rtcp) TakeReports(*m_sockets.rtcp);
        }
        ThrowIfInterrupted();
    }

    void TakeReports(UdpSocket &socket) {
        while (const auto datagram = socket.Receive(m_room)) {
            const auto report = ParseRtcp(datagram->bytes);
            if (!report) continue;
            for (const ReceptionReport &block : report->blocks) {
                if (block.ssrc != m_ssrc) continue;
                m_heard = block;
                const auto now = static_cast<uint32_t>(NtpNow() >> 16);
                m_roundTripMs = block.lastSenderReport == 0
                                    ? -1
                                    : static_cast<int32_t>(now - block.lastSenderReport -
                                                           block.sinceSenderReport) /
                                          65.536;
            }
        }
    }

    void Report(int64_t nowUs, bool isLast) {
        m_nextReportUs = nowUs + kReportIntervalUs;
        if (m_packets == 0 || m_destination.Port() == 65535) return;
        const auto since =
            static_cast<uint32_t>((nowUs - m_timestampUs) * (kOpusClock / 1000) / 1000);
        const RtcpReport report{
            .ssrc = m_ssrc,
            .sender = SenderInformation{NtpNow(), m_timestamp + since, m_packets, m_payloadBytes},
            .blocks = {},
            .bye = isLast};
        UdpSocket &socket = m_sockets.rtcp ? *m_sockets.rtcp : m_sockets.rtp;
        socket.Send(RtcpBytes(report, "aiplc"),
                    m_destination.WithPort(static_cast<uint16_t>(m_destination.Port() + 1)));
    }

    void PrintEnd() const {
        std::fprintf(stderr, "aiplc: send: %u packets sent to %s, %llu not sent\n", m_packets,
                     m_destination.Text().c_str(), static_cast<unsigned long long>(m_lost));
        if (!m_heard) return;
        std::fprintf(stderr, "the receiver reports %d lost, jitter %.1f ms", m_heard->lost,
                     m_heard->jitter / 48.0);
        if (m_roundTripMs >= 0) std::fprintf(stderr, ", round trip %.1f ms", m_roundTripMs);
        std::fputs("\n", stderr);
    }

    const SendOptions &m_options;
    const OpusCall &m_call;
    Address m_destination;
    std::string m_inputName;
    SocketPair m_sockets;
    std::unique_ptr<LossModel> m_losses;
    std::mt19937_64 m_random;
    uint32_t m_ssrc = 0;
    uint16_t m_firstSequence = 0;   // of this round
    uint32_t m_firstTimestamp = 0;  // of this round
    int64_t m_startUs = SteadyUs();
    int64_t m_roundUs = 0;  // start of this round
    bool m_isOver = false;
    std::vector<uint8_t> m_bytes;  // the packet
    std::array<uint8_t, 2048> m_room{};
    uint32_t m_timestamp = 0;  // of the last packet, and when it left
    int64_t m_timestampUs = 0;
    uint32_t m_packets = 0;
    uint32_t m_payloadBytes = 0;
    uint64_t m_lost = 0;
    int64_t m_nextReportUs = 0;
    std::optional<ReceptionReport> m_heard;  // the receiver's last
    double m_roundTripMs = -1;
};

void WriteDescription(const SendOptions &options, const Address &destination,
                      std::optional<int> redType) {
    std::string host = destination.WithPort(0).Text();
    if (destination.IsVersion6()) host = host.substr(1, host.size() - 2);
    OutputFile file(options.sdpPath, OutputFile::kNoInput);
    file.Write(SessionDescriptionText({.host = host,
                                       .port = destination.Port(),
                                       .payloadType = options.payloadType,
                                       .redPayloadType = redType,
                                       .rtcpPort = std::nullopt,
                                       .rtcpMux = false},
                                      destination.IsVersion6()));
    file.Commit();
}

}  // namespace

void Send(const SendOptions &options) {
    if (options.verbose) AiplcRegLog(PrintLog);
    const Address destination = DestinationOf(options.destination);
    std::string inputName;
    const LoadedCall loaded = LoadFor(options, inputName);
    for (const std::string &warning : loaded.warnings)
        std::fprintf(stderr, "aiplc: send: warning: %s\n", warning.c_str());
    const bool hasRed = loaded.call.redType >= 0;
    if (hasRed && options.redPayloadType == options.payloadType) {
        throw UsageError("--payload-type and --red-payload-type are both " +
                         std::to_string(options.payloadType) + "; give two different ones");
    }
    if (!options.sdpPath.empty())
        WriteDescription(options, destination,
                         hasRed ? std::optional(options.redPayloadType) : std::nullopt);
    LiveSender(options, loaded, destination, inputName).Run();
}

}  // namespace aiplc::tools
