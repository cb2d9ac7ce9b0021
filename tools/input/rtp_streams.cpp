// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/rtp_streams.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

#include "host/redundant_audio.h"
#include "tools/input/opus_call.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

constexpr int kFirstDynamicType = 35;
constexpr size_t kStreamsListed = 16;
constexpr double kOpusShare = 0.9;      // of a stream's packets; random bytes come to about 0.45
constexpr double kOpusStepShare = 0.5;  // of its steps; video and other clocks come to about 0
constexpr uint64_t kFewSteps = 10;      // too few to judge by
constexpr uint32_t kOpusGrid = 120;     // Opus frames last whole multiples of 2.5 ms

// Packets needed to tell an even spread over 16 classes, and the largest chi-square that passes as
// one: with 15 degrees of freedom a larger one comes by chance once in 13000.
constexpr uint64_t kSpreadPackets = 48;
constexpr double kEvenChiSquare = 45.0;

// RFC 3551, section 6; null where a number stands for no codec.
const char *StaticCodec(int payloadType) {
    static constexpr std::array<const char *, 35> kNames = {
        "PCMU",  nullptr, nullptr, "GSM",   "G723",  "DVI4",  "DVI4",  "LPC",  "PCMA",
        "G722",  "L16",   "L16",   "QCELP", "CN",    "MPA",   "G728",  "DVI4", "DVI4",
        "G729",  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, "CelB", "JPEG",
        nullptr, "nv",    nullptr, nullptr, "H261",  "MPV",   "MP2T",  "H263"};
    const auto number = static_cast<size_t>(payloadType);
    return number < kNames.size() ? kNames[number] : nullptr;
}

bool IsEvenlySpread(const RtpStream &stream) {
    uint64_t packets = 0;
    for (const uint64_t count : stream.firstNibbles)
        packets += count;
    if (packets < kSpreadPackets) return false;
    const double expected =
        static_cast<double>(packets) / static_cast<double>(stream.firstNibbles.size());
    double chiSquare = 0.0;
    for (const uint64_t count : stream.firstNibbles) {
        const double off = static_cast<double>(count) - expected;
        chiSquare += off * off / expected;
    }
    return chiSquare <= kEvenChiSquare;
}

// Counts the packets of one stream.
class StreamCounter {
  public:
    void Add(const RecordedPacket &packet) {
        const host::RtpView &rtp = packet.rtp;
        if (m_stream.packets == 0) {
            m_stream.ssrc = rtp.ssrc;
            m_stream.payloadType = rtp.payloadType;
            m_stream.from = packet.from;
            m_stream.to = packet.to;
            m_stream.firstNs = m_stream.lastNs = packet.timeNs;
        } else if (rtp.sequence == static_cast<uint16_t>(m_sequence + 1) && m_samples > 0) {
            const uint32_t step = rtp.timestamp - m_timestamp;
            ++m_stream.steps;
            if (step >= m_samples && step % kOpusGrid == 0) ++m_stream.opusSteps;
        }
        ++m_stream.packets;
        m_stream.lastNs = std::max(m_stream.lastNs, packet.timeNs);
        m_sequence = rtp.sequence;
        m_timestamp = rtp.timestamp;
        m_samples = 0;
        if (packet.cut) {
            ++m_stream.cut;
        } else if (rtp.payload.empty()) {
            ++m_stream.probes;
        } else {
            CountRedundantAudio(rtp);
            m_samples = OpusPacketSamples(rtp.payload);
            if (m_samples > 0) ++m_stream.opus;
            ++m_stream.firstNibbles[rtp.payload[0] >> 4];
        }
    }

    [[nodiscard]] const RtpStream &Stream() const { return m_stream; }

  private:
    void CountRedundantAudio(const host::RtpView &rtp) {
        const auto blocks =
            host::ParseRedundantAudio(rtp.payload, m_stream.redOpusType, rtp.payloadType);
        if (!blocks || blocks->payloadType < kFirstDynamicType ||
            OpusPacketSamples(blocks->primary) == 0)
            return;
        for (const host::RedundantAudio::Copy &copy : blocks->copies)
            if (OpusPacketSamples(copy.payload) == 0) return;
        m_stream.redOpusType = blocks->payloadType;
        ++m_stream.red;
        if (!blocks->copies.empty()) ++m_stream.redWithCopies;
    }

    RtpStream m_stream;
    uint16_t m_sequence = 0;
    uint32_t m_timestamp = 0;
    uint32_t m_samples = 0;  // of the packet before at 48 kHz; 0 when that is not known
};

}  // namespace

std::string RtpStream::Name() const {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "--ssrc 0x%08x --payload-type %d", ssrc, payloadType);
    return text.data();
}

// A packet of Opus passes for one of redundant audio with copies once in 128 times at most: lengths
// and the payload types of two blocks would have to fit.
bool RtpStream::IsRedundantAudio() const {
    const uint64_t judged = packets - probes - cut;
    return namedRed || (judged > 0 && 2 * redWithCopies >= judged &&
                        static_cast<double>(red) >= kOpusShare * static_cast<double>(judged));
}

std::string RtpStream::WhyNotOpus() const {
    const uint64_t judged = packets - probes - cut;
    const auto share = [](uint64_t part, uint64_t whole) {
        return static_cast<double>(part) / static_cast<double>(whole);
    };
    if (judged == 0) return cut > 0 ? "" : "all its packets are padding";
    if (IsRedundantAudio()) {
        if (share(red, judged) >= kOpusShare) return {};
        return std::to_string(judged - red) + " of " + std::to_string(judged) +
               " packets are no redundant audio (RFC 2198) of Opus";
    }
    if (share(opus, judged) < kOpusShare) {
        if (const char *codec = StaticCodec(payloadType))
            return "payload type " + std::to_string(payloadType) + " is " + codec + " (RFC 3551)";
        std::string reason = std::to_string(judged - opus) + " of " + std::to_string(judged) +
                             " packets are no Opus packets";
        if (IsEvenlySpread(*this))
            reason += ", and their first bytes are random, as encryption (SRTP) makes them";
        return reason;
    }
    if (steps >= kFewSteps && share(opusSteps, steps) < kOpusStepShare)
        return "its timestamps do not advance as Opus packets last; it may be video";
    return {};
}

std::vector<RtpStream> SurveyStreams(RtpRecording &recording, std::optional<int> redType) {
    std::map<std::pair<uint32_t, int>, StreamCounter> counters;
    RecordedPacket packet;
    while (recording.Next(packet))
        counters[{packet.rtp.ssrc, packet.rtp.payloadType}].Add(packet);
    std::vector<RtpStream> streams;
    streams.reserve(counters.size());
    for (const auto &[key, counter] : counters) {
        streams.push_back(counter.Stream());
        streams.back().namedRed = redType == key.second;
    }
    std::ranges::stable_sort(streams, std::ranges::greater{}, &RtpStream::packets);
    return streams;
}

size_t ChooseStream(const std::vector<RtpStream> &streams, const StreamChoice &choice,
                    const std::string &file) {
    if (streams.empty())
        throw Failure(file, "holds no RTP over UDP; capture the call's media packets");
    std::optional<size_t> refused;
    for (size_t i = 0; i < streams.size(); ++i) {
        const RtpStream &stream = streams[i];
        if (choice.ssrc && stream.ssrc != *choice.ssrc) continue;
        const bool typeFits = choice.payloadType ? stream.payloadType == *choice.payloadType
                                                 : stream.payloadType >= kFirstDynamicType;
        if (!typeFits) continue;
        if (stream.WhyNotOpus().empty()) return i;
        if (!refused) refused = i;
    }
    const std::string list = "choose one by --ssrc and --payload-type:" + StreamTable(streams, {});
    if (!refused) throw Failure(file, "no RTP stream fits; " + list);
    throw Failure(file, "the stream " + streams[*refused].Name() +
                            " is not Opus: " + streams[*refused].WhyNotOpus() +
                            "; give a capture of unencrypted Opus in RTP" +
                            (streams.size() > 1 ? ", or " + list : ""));
}

std::optional<size_t> OtherHalf(const std::vector<RtpStream> &streams, size_t chosen) {
    const auto isHalf = [](const RtpStream &red, const RtpStream &opus) {
        return red.IsRedundantAudio() && red.redOpusType == opus.payloadType &&
               red.ssrc == opus.ssrc;
    };
    for (size_t i = 0; i < streams.size(); ++i) {
        if (isHalf(streams[chosen], streams[i]) || isHalf(streams[i], streams[chosen])) return i;
    }
    return std::nullopt;
}

std::string StreamTable(const std::vector<RtpStream> &streams, std::optional<size_t> chosen) {
    std::string table = "\n    SSRC        type  packets  seconds  from > to";
    for (size_t i = 0; i < streams.size(); ++i) {
        if (i == kStreamsListed && i + 1 < streams.size()) {
            table += "\n    and " + std::to_string(streams.size() - i) + " more";
            break;
        }
        const RtpStream &stream = streams[i];
        std::array<char, 64> text{};
        std::snprintf(text.data(), text.size(), "\n  %c 0x%08x  %4d  %7llu  %7.1f  ",
                      chosen == i ? '*' : ' ', stream.ssrc, stream.payloadType,
                      static_cast<unsigned long long>(stream.packets), stream.Seconds());
        table += text.data() + EndpointText(stream.from) + " > " + EndpointText(stream.to);
        const std::string reason = stream.WhyNotOpus();
        if (!reason.empty()) {
            table += "  not Opus: " + reason;
        } else if (stream.IsRedundantAudio()) {
            table += "  redundant audio of type " + std::to_string(stream.redOpusType);
        }
    }
    return table;
}

}  // namespace aiplc::tools
