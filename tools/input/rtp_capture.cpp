// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/rtp_capture.h"

#include <algorithm>
#include <string>
#include <utility>

#include "host/redundant_audio.h"
#include "tools/input/rtp_recording.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

constexpr int64_t kMaxPauseUs = int64_t{600} * 1'000'000;

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

// Takes the packets of one stream out of a recording.
class PacketTaker {
  public:
    PacketTaker(OpusCall &call, const std::string &file) : m_call(call), m_file(file) {}

    void Take(const RecordedPacket &packet) {
        if (packet.rtp.payload.empty()) return;  // padding that probes the network
        if (m_call.packets.empty()) m_firstNs = packet.timeNs;
        const int64_t sinceFirstUs = (packet.timeNs - m_firstNs) / 1000;
        if (sinceFirstUs - m_arrivalUs > kMaxPauseUs) {
            throw Failure(m_file, "the stream pauses for more than 10 minutes behind packet " +
                                      std::to_string(m_call.packets.size()) +
                                      "; cut the capture there");
        }
        m_arrivalUs = std::max(m_arrivalUs, sinceFirstUs);  // clocks are set back at times
        CallPacket taken{{packet.rtp.payload.begin(), packet.rtp.payload.end()},
                         packet.rtp.sequence,
                         packet.rtp.timestamp,
                         m_arrivalUs};
        if (packet.rtp.payloadType == m_call.redType) {
            const auto blocks =
                host::ParseRedundantAudio(packet.rtp.payload, m_call.opusType, m_call.redType);
            const auto own = blocks.value_or(host::RedundantAudio{}).primary;
            taken.redundant.swap(taken.payload);
            taken.payload.assign(own.begin(), own.end());
        }
        m_call.packets.push_back(std::move(taken));
    }

  private:
    OpusCall &m_call;
    const std::string &m_file;
    int64_t m_firstNs = 0;
    int64_t m_arrivalUs = 0;
};

}  // namespace

CapturedCall ReadCapture(const InputFile &input, const StreamChoice &choice) {
    CapturedCall captured;
    const std::unique_ptr<RtpRecording> survey = OpenRtpRecording(input);
    captured.streams = SurveyStreams(*survey, choice.redPayloadType);
    captured.stopsEarly = survey->StopsEarly();
    captured.chosen = ChooseStream(captured.streams, choice, input.Name());
    const RtpStream &chosen = captured.streams[captured.chosen];
    const auto half = OtherHalf(captured.streams, captured.chosen);
    if (chosen.cut > 0 || (half && captured.streams[*half].cut > 0)) {
        throw Failure(input.Name(),
                      "holds only the beginning of some packets; capture whole packets "
                      "(tcpdump -s 0)");
    }

    OpusCall &call = captured.call;
    call.hasArrivalTimes = true;
    const RtpStream &red = half && !chosen.IsRedundantAudio() ? captured.streams[*half] : chosen;
    if (red.IsRedundantAudio()) {
        call.opusType = red.redOpusType;
        call.redType = red.payloadType;
    }
    const std::unique_ptr<RtpRecording> recording = OpenRtpRecording(input);
    PacketTaker taker(call, input.Name());
    RecordedPacket packet;
    while (recording->Next(packet)) {
        const int type = packet.rtp.payloadType;
        const bool isHalf = half && type == captured.streams[*half].payloadType;
        if (packet.rtp.ssrc == chosen.ssrc && (type == chosen.payloadType || isHalf))
            taker.Take(packet);
    }
    call.span = CallSpan(call, input.Name());
    call.samples = call.span;
    return captured;
}

}  // namespace aiplc::tools
