// SPDX-License-Identifier: BSD-2-Clause

#include "rtp_capture.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "failure.h"
#include "interrupt.h"
#include "link_layer.h"

namespace aiplc::tools {
namespace {

constexpr int kFirstDynamicType = 35;
constexpr size_t kStreamsListed = 8;
constexpr int64_t kMaxPauseUs = int64_t{600} * 1'000'000;
constexpr int64_t kLastSecond = 9'000'000'000;  // so that nanoseconds fit

struct StreamKey {
    uint32_t ssrc;
    int payloadType;
    bool operator<(const StreamKey &other) const {
        return ssrc != other.ssrc ? ssrc < other.ssrc : payloadType < other.payloadType;
    }
};
using StreamCounts = std::map<StreamKey, uint64_t>;

uint16_t Word(std::span<const uint8_t> bytes, size_t at) {
    return static_cast<uint16_t>((bytes[at] << 8) | bytes[at + 1]);
}

uint32_t DoubleWord(std::span<const uint8_t> bytes, size_t at) {
    return (uint32_t{Word(bytes, at)} << 16) | Word(bytes, at + 2);
}

// One pass over the RTP packets of a capture file.
class Capture {
  public:
    explicit Capture(const InputFile &input) : m_name(input.Name()) {
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

    // False at the end. Throws Failure for a damaged file.
    bool Next(RtpView &packet, int64_t &timeNs, bool &cut) {
        for (;;) {
            ThrowIfInterrupted();
            pcap_pkthdr *header = nullptr;
            const u_char *bytes = nullptr;
            const int result = pcap_next_ex(m_pcap.get(), &header, &bytes);
            if (result == PCAP_ERROR_BREAK) return false;
            ++m_frames;
            if (result != 1) {
                throw Failure(m_name, "damaged at frame " + std::to_string(m_frames) + ": " +
                                          pcap_geterr(m_pcap.get()) +
                                          "; give an intact pcap or pcapng file");
            }
            const auto udp = FindUdpPayload(m_linkType, {bytes, header->caplen});
            if (!udp) continue;
            const auto rtp = ParseRtp(udp->bytes);
            if (!rtp) continue;
            packet = *rtp;
            cut = udp->cut || header->caplen < header->len;
            // The field for microseconds holds nanoseconds, as asked for.
            const int64_t seconds = std::clamp<int64_t>(header->ts.tv_sec, 0, kLastSecond);
            timeNs = seconds * 1'000'000'000 + header->ts.tv_usec;
            return true;
        }
    }

  private:
    struct Close {
        void operator()(pcap_t *pcap) const { pcap_close(pcap); }
    };

    std::string m_name;
    std::unique_ptr<pcap_t, Close> m_pcap;
    int m_linkType = 0;
    uint64_t m_frames = 0;
};

std::string StreamName(const StreamKey &key) {
    char text[64];
    std::snprintf(text, sizeof text, "--ssrc 0x%08x --payload-type %d", key.ssrc, key.payloadType);
    return text;
}

[[noreturn]] void FailWithoutStream(const std::string &file, const StreamCounts &streams) {
    if (streams.empty()) {
        throw Failure(file, "holds no RTP over UDP; capture the call's media packets");
    }
    std::string list;
    size_t listed = 0;
    for (const auto &[key, count] : streams) {
        if (listed++ == kStreamsListed) break;
        list += "\n  " + StreamName(key) + "  (" + std::to_string(count) + " packets)";
    }
    throw Failure(file, "no RTP stream fits; give one of those in the capture:" + list);
}

StreamKey ChooseStream(const InputFile &input, const StreamChoice &choice, StreamCounts &streams) {
    Capture capture(input);
    RtpView packet;
    int64_t timeNs = 0;
    bool cut = false;
    while (capture.Next(packet, timeNs, cut))
        ++streams[{packet.ssrc, packet.payloadType}];

    const StreamKey *best = nullptr;
    uint64_t most = 0;
    for (const auto &[key, count] : streams) {
        if (choice.ssrc && key.ssrc != *choice.ssrc) continue;
        const bool typeFits = choice.payloadType ? key.payloadType == *choice.payloadType
                                                 : key.payloadType >= kFirstDynamicType;
        if (typeFits && count > most) {
            best = &key;
            most = count;
        }
    }
    if (best == nullptr) FailWithoutStream(input.Name(), streams);
    return *best;
}

// Length of the call in 48 kHz samples: by its timestamps, of which the first to arrive need not be
// the earliest, or, when the sender's clock jumped, by the time it took. At least one packet is
// Opus.
int64_t CallSpan(const OpusCall &call, const std::string &file) {
    constexpr int64_t kBelievableDrift = int64_t{2} * kOpusClock;
    int64_t position = 0;
    int64_t begin = 0;
    int64_t end = 0;
    int64_t taken = 0;
    uint32_t previous = call.packets.front().timestamp;
    for (const CallPacket &packet : call.packets) {
        position += static_cast<int32_t>(packet.timestamp - previous);
        previous = packet.timestamp;
        const int64_t samples = OpusPacketSamples(packet.payload);
        if (samples == 0) continue;
        end = std::max(end, position + samples);
        begin = std::min(begin, position);
        taken = packet.arrivalUs * 48 / 1000 + samples;
    }
    const bool believable = std::abs(end - begin - taken) <= kBelievableDrift;
    const int64_t span = believable ? end - begin : taken;
    if (span > kMaxCallSeconds * kOpusClock) {
        throw Failure(file, "the stream lasts longer than 12 hours; give a shorter capture");
    }
    return span;
}

}  // namespace

std::optional<RtpView> ParseRtp(std::span<const uint8_t> datagram) {
    if (datagram.size() < 12 || (datagram[0] >> 6) != 2) return std::nullopt;
    RtpView packet;
    packet.payloadType = datagram[1] & 0x7F;
    if (packet.payloadType >= 64 && packet.payloadType <= 95) return std::nullopt;  // RFC 5761, 4
    packet.sequence = Word(datagram, 2);
    packet.timestamp = DoubleWord(datagram, 4);
    packet.ssrc = DoubleWord(datagram, 8);
    size_t start = 12 + size_t{4} * (datagram[0] & 0x0F);
    if ((datagram[0] & 0x10) != 0) {
        if (start + 4 > datagram.size()) return std::nullopt;
        start += 4 + size_t{4} * Word(datagram, start + 2);
    }
    size_t end = datagram.size();
    if ((datagram[0] & 0x20) != 0) {
        const size_t padding = datagram.back();
        if (padding == 0 || padding > end) return std::nullopt;
        end -= padding;
    }
    if (start > end) return std::nullopt;
    packet.payload = datagram.subspan(start, end - start);
    return packet;
}

CapturedCall ReadCapture(const InputFile &input, const StreamChoice &choice) {
    StreamCounts streams;
    const StreamKey chosen = ChooseStream(input, choice, streams);
    CapturedCall captured;
    captured.stream = {chosen.ssrc, chosen.payloadType, 0, streams.size() - 1};
    OpusCall &call = captured.call;
    call.hasArrivalTimes = true;

    Capture capture(input);
    RtpView packet;
    int64_t timeNs = 0;
    int64_t firstNs = 0;
    int64_t arrivalUs = 0;
    bool cut = false;
    bool anyOpus = false;
    while (capture.Next(packet, timeNs, cut)) {
        if (packet.ssrc != chosen.ssrc || packet.payloadType != chosen.payloadType) continue;
        if (cut) {
            throw Failure(input.Name(),
                          "holds only the beginning of some packets; capture whole "
                          "packets (tcpdump -s 0)");
        }
        if (packet.payload.empty()) {  // padding that probes the network
            ++captured.stream.probes;
            continue;
        }
        if (call.packets.empty()) firstNs = timeNs;
        const int64_t sinceFirstUs = (timeNs - firstNs) / 1000;
        if (sinceFirstUs - arrivalUs > kMaxPauseUs) {
            throw Failure(input.Name(),
                          "the stream pauses for more than 10 minutes behind packet " +
                              std::to_string(call.packets.size()) + "; cut the capture there");
        }
        arrivalUs = std::max(arrivalUs, sinceFirstUs);  // clocks are set back at times
        anyOpus = anyOpus || OpusPacketSamples(packet.payload) > 0;
        call.packets.push_back({{packet.payload.begin(), packet.payload.end()},
                                packet.sequence,
                                packet.timestamp,
                                arrivalUs});
    }
    if (!anyOpus) {
        throw Failure(input.Name(), "the stream " + StreamName(chosen) +
                                        " holds no Opus packets; choose another with --ssrc or "
                                        "--payload-type, and note that encrypted RTP cannot be "
                                        "read");
    }
    call.span = CallSpan(call, input.Name());
    call.samples = call.span;
    return captured;
}

}  // namespace aiplc::tools
