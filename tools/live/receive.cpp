// SPDX-License-Identifier: BSD-2-Clause

#include "tools/live/receive.h"

#include <aiplc/aiplc.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "tools/live/audio_output.h"
#include "tools/live/call_status.h"
#include "tools/live/reception.h"
#include "tools/live/session_description.h"
#include "tools/live/udp_socket.h"
#include "tools/play/receiver_handle.h"
#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/log_lines.h"
#include "tools/shell/output_targets.h"

namespace aiplc::tools {
namespace {

constexpr size_t kLargestDatagram = 65536;
constexpr int64_t kJsonIntervalUs = 1'000'000;
constexpr int64_t kLineIntervalUs = 250'000;
constexpr int64_t kLongestWaitUs = 250'000;
constexpr int kDatagramsAtOnce = 200;  // then the audio has its turn

// Where packets are waited for, by the command line or a session description.
struct Source {
    Address address;
    std::optional<Address> group;  // multicast
    std::optional<int> payloadType;
    std::optional<int> redPayloadType;
    std::optional<uint16_t> rtcpPort;
    bool rtcpMux = false;
};

Source FromDescription(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw Failure(path,
                      "is no port and no file that can be opened; give a UDP port, HOST:PORT, "
                      "or a session description");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const SessionDescription session = ParseSessionDescription(text, path);
    Source source;
    source.address = Resolve("", session.port);
    source.payloadType = session.payloadType;
    source.redPayloadType = session.redPayloadType;
    source.rtcpPort = session.rtcpPort;
    source.rtcpMux = session.rtcpMux;
    if (session.host.empty()) return source;
    const Address host = Resolve(session.host, session.port);
    if (!host.IsMulticast()) return source;
    source.group = host;
    if (!host.IsVersion6()) source.address = Resolve("0.0.0.0", session.port);
    return source;
}

Source SourceOf(const ReceiveOptions &options) {
    Source source;
    if (const auto place = ParseHostPort(options.source)) {
        source.address = Resolve(place->first, place->second);
    } else {
        source = FromDescription(options.source);
    }
    if (options.payloadType) source.payloadType = options.payloadType;
    if (options.redPayloadType) source.redPayloadType = options.redPayloadType;
    source.rtcpMux = source.rtcpMux || options.rtcpMux;
    return source;
}

AiPlcReceiverOptions ReceiverOptionsOf(const ReceiveOptions &options, const Source &source) {
    AiPlcReceiverOptions receiver = ReceiverFor(options.receiving);
    receiver.sampleRate = static_cast<uint32_t>(options.sampleRate);
    receiver.payloadType = source.payloadType.value_or(-1);
    receiver.redPayloadType = source.redPayloadType.value_or(-1);
    receiver.jitterBuffer = options.jitterBuffer.kind;
    receiver.minDelayMs = options.jitterBuffer.minDelayMs;
    receiver.maxDelayMs = options.jitterBuffer.maxDelayMs;
    return receiver;
}

// One call, from the first packet that may come to the end that is asked for.
class LiveCall {
  public:
    LiveCall(const ReceiveOptions &options, const Source &source)
        : m_options(options),
          m_sockets(OpenPair(source.address)),
          m_reception(m_sockets, source.rtcpMux, source.rtcpPort),
          m_receiver(ReceiverOptionsOf(options, source)),
          m_output(options.output, options.card, options.sampleRate),
          m_lines(options.jsonLinesPath),
          m_line(!options.quiet),
          m_room(kLargestDatagram) {
        if (source.group) m_sockets.rtp.Join(*source.group);
        if (source.group && m_sockets.rtcp) m_sockets.rtcp->Join(*source.group);
    }

    void Run() {
        PrintStart();
        try {
            while (!IsOver())
                Step();
        } catch (const Interrupted &) {
            // The end that was asked for.
        }
        if (!m_options.noRtcp) m_reception.Report(m_receiver.Statistics(), SteadyUs(), true);
        m_line.Clear();
        m_output.Finish();
        m_lines.Write(StatusJson(Status(), "end"));
        PrintEnd();
    }

  private:
    [[nodiscard]] bool IsOver() const {
        if (m_options.once && m_reception.HasLeft() && m_seconds >= m_leftAt + 0.2) return true;
        return m_options.duration && m_seconds >= *m_options.duration - 1e-9;
    }

    void Step() {
        ThrowIfInterrupted();
        const int64_t now = SteadyUs();
        const int64_t due = m_hasBegun ? m_output.DueUs(now) : now + kLongestWaitUs;
        if (m_hasBegun && due <= now) {
            Play();
        } else {
            Wait(std::min(due - now, kLongestWaitUs));
        }
        Take(m_sockets.rtp, true);
        if (m_sockets.rtcp) Take(*m_sockets.rtcp, false);
        Tell(SteadyUs());
    }

    void Play() {
        m_output.Write(m_receiver.Pull().samples);
        m_seconds += 0.02;
        if (!m_reception.HasLeft()) m_leftAt = m_seconds;
    }

    void Wait(int64_t us) {
        std::array<pollfd, 2> ready = {
            {{m_sockets.rtp.Descriptor(), POLLIN, 0},
             {m_sockets.rtcp ? m_sockets.rtcp->Descriptor() : -1, POLLIN, 0}}};
        const timespec limit{us / 1'000'000, us % 1'000'000 * 1000};
        (void)ppoll(ready.data(), ready.size(), &limit, nullptr);
    }

    void Take(UdpSocket &socket, bool isRtp) {
        for (int count = 0; count < kDatagramsAtOnce; ++count) {
            const auto datagram = socket.Receive(m_room);
            if (!datagram) return;
            if (IsRtcp(datagram->bytes)) {
                m_reception.TakeReport(*datagram, isRtp);
            } else if (isRtp && m_receiver.PushRtp(datagram->bytes, datagram->arrivalUs)) {
                const uint32_t before = m_reception.Source();
                m_reception.TakePacket(*datagram);
                if (!m_hasBegun || m_reception.Source() != before) m_from = datagram->from.Text();
                m_hasBegun = true;
            }
        }
    }

    void Tell(int64_t now) {
        if (!m_hasBegun) return;
        if (!m_options.noRtcp && now >= m_reception.NextUs())
            m_reception.Report(m_receiver.Statistics(), now, false);
        if (now >= m_nextLineUs) {
            m_nextLineUs = now + kLineIntervalUs;
            m_line.Show(StatusLine(Status()));
        }
        if (!m_options.jsonLinesPath.empty() && now >= m_nextJsonUs) {
            m_nextJsonUs = now + kJsonIntervalUs;
            m_lines.Write(StatusJson(Status(), "statistics"));
        }
    }

    [[nodiscard]] CallStatus Status() const {
        return {.seconds = m_seconds,
                .ssrc = m_reception.Source(),
                .payloadType = m_reception.PayloadType(),
                .from = m_from,
                .senderLeft = m_reception.HasLeft(),
                .receiverReports = m_reception.ReportsSent(),
                .interruptions = m_output.Interruptions(),
                .predictorRunning = m_receiver.PredictorRunning(),
                .statistics = m_receiver.Statistics()};
    }

    // Tests and scripts wait for this line: packets that come from now on are received.
    void PrintStart() const {
        if (m_options.receiving.UsesNetwork() && !m_receiver.PredictorRunning())
            std::fputs(
                "aiplc: receive: warning: the worker did not start; the codec conceals every "
                "loss (--verbose tells what went wrong)\n",
                stderr);
        if (!m_sockets.rtcp && !m_options.noRtcp)
            std::fprintf(stderr,
                         "aiplc: receive: warning: port %d, for RTCP, is taken; the sender's "
                         "reports are not seen\n",
                         m_sockets.rtp.Port() + 1);
        if (!m_options.quiet)
            std::fprintf(stderr, "aiplc: receive: waiting for RTP on UDP port %d; Ctrl-C ends\n",
                         m_sockets.rtp.Port());
    }

    void PrintEnd() const {
        if (m_options.quiet) return;
        if (!m_hasBegun) {
            std::fputs("aiplc: receive: no RTP packet has come\n", stderr);
            return;
        }
        const CallStatus status = Status();
        const AiPlcReceiverStatistics &counted = status.statistics;
        std::fprintf(stderr, "%s\n", StatusLine(status).c_str());
        std::fprintf(stderr,
                     "from %s, SSRC 0x%08X, payload type %d; %llu requests to the network, %llu of "
                     "them failed; stretched by %.0f ms, shortened by %.0f ms\n",
                     status.from.c_str(), status.ssrc, status.payloadType,
                     static_cast<unsigned long long>(counted.requests),
                     static_cast<unsigned long long>(counted.requestsFailed),
                     1e3 * static_cast<double>(counted.insertedSamplesForDeceleration) /
                         m_options.sampleRate,
                     1e3 * static_cast<double>(counted.removedSamplesForAcceleration) /
                         m_options.sampleRate);
    }

    const ReceiveOptions &m_options;
    SocketPair m_sockets;
    Reception m_reception;
    ReceiverHandle m_receiver;
    AudioOutput m_output;
    LineFile m_lines;
    TerminalLine m_line;
    std::vector<uint8_t> m_room;  // one datagram
    std::string m_from;
    bool m_hasBegun = false;  // a packet has come
    double m_seconds = 0;     // of audio
    double m_leftAt = 0;      // of audio, when the sender said goodbye
    int64_t m_nextLineUs = 0;
    int64_t m_nextJsonUs = 0;
};

}  // namespace

void Receive(const ReceiveOptions &options) {
    CheckDistinct({{"-o", options.output}, {"--json-lines", options.jsonLinesPath}});
    if (options.verbose) AiplcRegLog(PrintLog);
    PrintDecoderNote("receive", options.receiving);
    LiveCall(options, SourceOf(options)).Run();
}

}  // namespace aiplc::tools
