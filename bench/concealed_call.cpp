// SPDX-License-Identifier: BSD-2-Clause

#include "bench/concealed_call.h"

#include <algorithm>
#include <stdexcept>

#include "bench/allocations.h"

namespace aiplc::bench {

namespace {

constexpr size_t kHeaderWords = 4;
// Rings filled, filters run in.
constexpr int kReceivedFirst = 12;
constexpr int kPatternsFirst = 4;

// One period of losses, in ticks.
struct Pattern {
    int64_t ticks;
    int64_t firstLost;  // from there on all are
    int64_t measured;

    bool IsReceived(int64_t tick) const { return tick < firstLost; }
};

// Output runs three frames behind, so with every third frame lost a call takes one lost frame and
// plays another.
Pattern PatternOf(FrameKind kind) {
    switch (kind) {
        case FrameKind::concealed:
            return {3, 2, 2};
        case FrameKind::predicted:
            return {4, 2, 1};
        case FrameKind::received:
        case FrameKind::narrowband:
            break;
    }
    return {1, 1, 0};
}

bool IsPredicted(AiPlcPktType type) {
    return type == AIPLC_INTERPOLATE || type == AIPLC_EXTRAPOLATE;
}

// AiPlcApply hands its callback only a number. One call runs at a time.
const std::vector<int16_t> *concealment = nullptr;

int32_t Conceal(uint32_t /*userArg*/, AiPlcDecodeRequest *request) {
    std::ranges::copy(*concealment, request->pcmOut);
    request->pcmOutSamples = static_cast<uint16_t>(concealment->size());
    return 0;
}

}  // namespace

ConcealedCall::ConcealedCall(int rate, FrameKind kind, Answers answers,
                             AiplcAdapterInterface *adapter)
    : m_speech(rate),
      m_kind(kind),
      m_record(kHeaderWords + m_speech.Frame().size()),
      m_output(size_t{7} * AIPLC_FRAME_SAMPLES_48K) {
    const bool startsWorker = answers == Answers::network;
    if (AiPlcAsyncInit(&m_channel, startsWorker ? 1 : 0) != 0) {
        AiPlcAsyncDestroy(&m_channel);
        throw std::runtime_error("AiPlcAsyncInit failed");
    }
    if (answers == Answers::given) m_channel.adapter = adapter;
    m_channel.is48K = rate == 48000 ? 1 : 0;
    m_channel.frameSamples = static_cast<uint32_t>(m_speech.Frame().size());
    m_stats.counterMode = 1;
    m_stats.sampleRate = static_cast<uint32_t>(rate);
    m_host.stats = &m_stats;
    m_host.decodeLost = Conceal;
    m_host.channel = &m_channel;
    for (int tick = 0; tick < kReceivedFirst; ++tick)
        (void)Tick(true, [] {});
    const Pattern pattern = PatternOf(kind);
    for (int64_t tick = 0; tick < kPatternsFirst * pattern.ticks; ++tick)
        (void)Tick(pattern.IsReceived(tick % pattern.ticks), [] {});
}

ConcealedCall::~ConcealedCall() {
    // The library deletes an adapter of its own only.
    if (m_channel.sEnableAIPLC != 1) m_channel.adapter = nullptr;
    AiPlcAsyncDestroy(&m_channel);
}

int64_t ConcealedCall::TicksPerFrame(FrameKind kind) {
    return PatternOf(kind).ticks;
}

void ConcealedCall::PrepareReceived() {
    const std::vector<int16_t> &samples = m_speech.Frame();
    const uint32_t bandwidth =
        m_kind == FrameKind::narrowband ? AIPLC_BANDWIDTH_NARROWBAND : m_speech.Bandwidth();
    m_record[0] = static_cast<uint16_t>(m_record.size());
    m_record[1] = m_sequenceNumber;
    m_record[2] = static_cast<uint16_t>(bandwidth);
    m_record[3] = static_cast<uint16_t>(bandwidth >> 16);
    std::ranges::copy(samples, m_record.begin() + kHeaderWords);

    AiPlcHostStream &stream = m_host.streams[0];
    stream.pktCursor = m_record.data();
    stream.pktWordsLeft = static_cast<uint16_t>(m_record.size());
    stream.inReadPos = reinterpret_cast<uint8_t *>(m_record.data() + kHeaderWords);
    stream.inEndPos = stream.inReadPos + samples.size() * sizeof(int16_t);
    stream.inAvailable = static_cast<uint16_t>(samples.size());
    m_host.packetCount = 1;
}

void ConcealedCall::PrepareLost() {
    AiPlcHostStream &stream = m_host.streams[0];
    stream.pktWordsLeft = 0;
    stream.inAvailable = 0;
    m_host.packetCount = 0;
}

ConcealedCall::Frame ConcealedCall::Tick(bool isReceived, void (*around)()) {
    Frame frame;
    frame.decodeNs = m_speech.DecodeNext();
    if (isReceived) {
        PrepareReceived();
    } else {
        PrepareLost();
    }
    AiPlcHostStream &stream = m_host.streams[0];
    stream.outBase = reinterpret_cast<uint8_t *>(m_output.data());
    stream.outEnd = stream.outBase + m_output.size() * sizeof(int16_t);
    stream.outRead = stream.outWrite = stream.outBase;
    stream.outPending = 0;
    concealment = &m_speech.Frame();
    m_channel.inferTimeMs = -1;  // a request sets it
    m_channel.inferFailed = 0;
    ++m_sequenceNumber;

    const auto allocations = Allocations();
    const int64_t begin = Nanoseconds();
    around();
    const int32_t result = AiPlcApply(&m_host, 0, 0);
    around();
    frame.applyNs = Nanoseconds() - begin;
    if (allocations) frame.allocations = *Allocations() - *allocations;
    frame.isLate = m_channel.inferFailed != 0;
    if (result != 0) throw std::runtime_error("AiPlcApply failed");
    return frame;
}

ConcealedCall::Frame ConcealedCall::Next(Pace &pace, void (*around)()) {
    const Pattern pattern = PatternOf(m_kind);
    Frame measured;
    for (int64_t tick = 0; tick < pattern.ticks; ++tick) {
        pace.Wait();
        if (tick == pattern.measured) {
            measured = Tick(pattern.IsReceived(tick), around);
            CheckKind();
        } else {
            (void)Tick(pattern.IsReceived(tick), [] {});
        }
    }
    return measured;
}

void ConcealedCall::CheckKind() const {
    const AiPlcPkt &played = *m_channel.outputRing->head;
    const bool asked = m_channel.inferTimeMs >= 0;
    const bool isPredicted = asked && (IsPredicted(played.pktType) || m_channel.inferFailed != 0);
    const bool isExpected = m_kind == FrameKind::predicted ? isPredicted
                            : m_kind == FrameKind::concealed
                                ? played.pktType == OPUSPLC_PREDICT && !asked
                                : played.pktType == OPUS_DECODED && !asked;
    if (!isExpected) throw std::runtime_error("the library played another kind of frame");
}

}  // namespace aiplc::bench
