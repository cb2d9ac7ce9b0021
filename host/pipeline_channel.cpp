// SPDX-License-Identifier: BSD-2-Clause

#include "host/pipeline_channel.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

namespace aiplc::host {
namespace {

constexpr size_t kRecordHeaderWords = 4;
constexpr size_t kOutputReserveBytes = 11520;  // AiPlcApply moves the area when less is left

// AiPlcApply hands its callback only a number, so the concealment of the call that is running on
// this thread is kept here.
using ConcealFunction = std::function<void(std::span<int16_t>)>;
thread_local const ConcealFunction *runningConcealment = nullptr;
thread_local size_t runningFrameSamples = 0;

class RunningConcealment {
  public:
    RunningConcealment(const ConcealFunction &conceal, size_t frameSamples) {
        runningConcealment = &conceal;
        runningFrameSamples = frameSamples;
    }
    ~RunningConcealment() { runningConcealment = nullptr; }
    RunningConcealment(const RunningConcealment &) = delete;
    RunningConcealment &operator=(const RunningConcealment &) = delete;
};

int32_t DecodeLost(uint32_t /*userArg*/, AiPlcDecodeRequest *request) {
    if (runningConcealment == nullptr) return -1;
    (*runningConcealment)({request->pcmOut, runningFrameSamples});
    request->pcmOutSamples = static_cast<uint16_t>(runningFrameSamples);
    return 0;
}

bool IsPredicted(const AiPlcPkt &node) {
    return node.pktType == AIPLC_EXTRAPOLATE || node.pktType == AIPLC_INTERPOLATE;
}

uint8_t *Bytes(void *memory) {
    return static_cast<uint8_t *>(memory);
}

}  // namespace

void PipelineChannel::Deleter::operator()(StAiPlcChannel *channel) const {
    // The library deletes an adapter of its own only.
    if (channel->sEnableAIPLC != 1) channel->adapter = nullptr;
    (void)AiPlcAsyncDestroy(channel);
    delete channel;
}

PipelineChannel::PipelineChannel(uint32_t sampleRate, bool useWorker,
                                 AiplcAdapterInterface *adapter)
    : m_is48K(sampleRate == 48000),
      m_frameSamples(m_is48K ? AIPLC_FRAME_SAMPLES_48K : AIPLC_FRAME_SAMPLES_16K),
      m_outputArea(m_frameSamples + kOutputReserveBytes / sizeof(int16_t)) {
    m_records.reserve((kLookAhead + 1) * (kRecordHeaderWords + m_frameSamples));
    auto block = std::make_unique<StAiPlcChannel>();
    StAiPlcChannel *channel = nullptr;
    if (AiPlcCreate(&channel, block.get()) != 0)
        throw std::runtime_error("concealment channel: AiPlcCreate failed");
    m_channel.reset(block.release());
    const bool startWorker = useWorker && adapter == nullptr;
    const int32_t result = AiPlcAsyncInit(m_channel.get(), startWorker ? 1 : 0);
    if (m_channel->opusRing == nullptr) {
        throw std::runtime_error("concealment channel: AiPlcAsyncInit returned " +
                                 std::to_string(result));
    }
    if (adapter != nullptr) m_channel->adapter = adapter;
    m_channel->is48K = m_is48K ? 1 : 0;
    m_channel->frameSamples = m_frameSamples;

    m_stats.counterMode = 1;
    m_stats.sampleRate = sampleRate;
    m_host.stats = &m_stats;
    m_host.decodeLost = DecodeLost;
    m_host.channel = m_channel.get();
    AiPlcHostStream &stream = m_host.streams[0];
    stream.outBase = Bytes(m_outputArea.data());
    stream.outEnd = stream.outBase + m_outputArea.size() * sizeof(int16_t);
}

PipelineChannel::~PipelineChannel() = default;

// Calls the library. Each frame is taken at once, so the output area is always empty before.
void PipelineChannel::Apply() {
    AiPlcHostStream &stream = m_host.streams[0];
    stream.outRead = stream.outBase;
    stream.outWrite = stream.outBase;
    stream.outPending = 0;
    (void)AiPlcApply(&m_host, 0, 0);
    // Before the first received frame the library's silent frame has 960 samples at any rate, and a
    // frame that failed has none.
    const size_t written = std::min<size_t>(stream.outPending, m_frameSamples);
    std::fill(m_outputArea.begin() + static_cast<std::ptrdiff_t>(written),
              m_outputArea.begin() + m_frameSamples, int16_t{0});
    ++m_sequenceNumber;
}

void PipelineChannel::AddRecord(std::span<const int16_t> samples, uint32_t bandwidth,
                                uint16_t sequenceNumber) {
    m_records.push_back(static_cast<uint16_t>(kRecordHeaderWords + samples.size()));
    m_records.push_back(sequenceNumber);
    m_records.push_back(static_cast<uint16_t>(bandwidth));
    m_records.push_back(static_cast<uint16_t>(bandwidth >> 16));
    m_records.insert(m_records.end(), samples.begin(), samples.end());
}

void PipelineChannel::ApplyReceived(std::span<const Frame> lateOnes,
                                    std::span<const int16_t> samples, uint32_t bandwidth) {
    m_records.clear();
    auto number = static_cast<uint16_t>(m_sequenceNumber - lateOnes.size());
    for (const Frame &frame : lateOnes)
        AddRecord(frame.samples, frame.bandwidth, number++);
    AddRecord(samples, bandwidth, number);

    // The samples are in the records; the positions only say how many there are.
    const size_t frames = lateOnes.size() + 1;
    AiPlcHostStream &stream = m_host.streams[0];
    stream.inReadPos = Bytes(m_records.data());
    stream.inEndPos = stream.inReadPos + frames * m_frameSamples * sizeof(int16_t);
    stream.inAvailable = static_cast<uint16_t>(frames * m_frameSamples);
    stream.pktCursor = m_records.data();
    stream.pktWordsLeft = static_cast<uint16_t>(m_records.size());
    m_host.packetCount = static_cast<int32_t>(frames);
    Apply();
}

bool PipelineChannel::TakesLateFrames(std::span<const Frame> lateOnes) const {
    const AiPlcPkt *before = m_channel->historyRing->head;
    for (size_t i = 0; i < lateOnes.size(); ++i)
        before = before->prev;
    return !m_is48K && before->pktType == OPUS_DECODED &&
           std::ranges::none_of(lateOnes, &Frame::lost);
}

void PipelineChannel::ApplyLost(const ConcealFunction &conceal) {
    const RunningConcealment running(conceal, m_frameSamples);
    AiPlcHostStream &stream = m_host.streams[0];
    stream.inAvailable = 0;
    stream.pktWordsLeft = 0;
    m_host.packetCount = 0;
    Apply();
}

// As the library does it for a received frame.
void PipelineChannel::SplitIntoBands(AiPlcPkt &node) {
    if (!m_is48K) {
        std::memcpy(node.bands[0], node.samples, sizeof node.bands[0]);
        return;
    }
    std::array<float, AIPLC_FRAME_SAMPLES_48K> audio{};
    AiPlcShort2Float(node.samples, audio.data(), AIPLC_FRAME_SAMPLES_48K);
    if (AiPlcThreeBandAnalysis(audio.data(), audio.data(), m_channel->inputAnalysisMem,
                               AIPLC_FRAME_SAMPLES_48K) != 0) {
        audio.fill(0);
    }
    for (size_t band = 0; band < AIPLC_BANDS; ++band)
        AiPlcFloat2Short(&audio[band * AIPLC_BAND_SAMPLES], node.bands[band], AIPLC_BAND_SAMPLES);
}

PipelineChannel::Memories PipelineChannel::SaveMemories() const {
    const StAiPlcChannel &channel = *m_channel;
    return {std::to_array(channel.inputAnalysisMem), std::to_array(channel.opusAnalysisMem),
            std::to_array(channel.opusSynthesisMem), std::to_array(channel.opusLowPassMem16K),
            std::to_array(channel.opusLowPassMem48K)};
}

void PipelineChannel::Rewind(int64_t frames, const Memories &memories) {
    StAiPlcChannel &channel = *m_channel;
    std::ranges::copy(memories.inputAnalysis, channel.inputAnalysisMem);
    std::ranges::copy(memories.codecAnalysis, channel.opusAnalysisMem);
    std::ranges::copy(memories.codecSynthesis, channel.opusSynthesisMem);
    std::ranges::copy(memories.codecLowPass16K, channel.opusLowPassMem16K);
    std::ranges::copy(memories.codecLowPass48K, channel.opusLowPassMem48K);
    m_rewriteNode = channel.historyRing->head->next;
    for (int64_t i = 0; i < frames; ++i) {
        channel.opusRing->head = channel.opusRing->head->prev;
        m_rewriteNode = m_rewriteNode->prev;
    }
}

void PipelineChannel::Rewrite(const Frame &rewritten) {
    RewriteCodecNode(rewritten.samples, rewritten.bandwidth);
    AiPlcPkt &placeholder = *m_rewriteNode;
    m_rewriteNode = m_rewriteNode->next;
    if (rewritten.lost) {
        std::ranges::fill(m_channel->inputAnalysisMem, 0.0F);
        return;
    }
    AiPlcPkt *frame = AiPlcCreatePktSn(
        rewritten.samples.data(), static_cast<uint32_t>(rewritten.samples.size() * sizeof(int16_t)),
        OPUS_DECODED, static_cast<uint16_t>(placeholder.seqNumber), rewritten.bandwidth);
    if (frame == nullptr) return;
    SplitIntoBands(*frame);
    JoinPrediction(placeholder, *frame);
    (void)AiPlcCopyPkt(&placeholder, frame);
    (void)AiPlcDestroyPkt(frame);
    m_channel->predictLimitHit = 0;
}

void PipelineChannel::RewriteCodecNode(std::span<const int16_t> samples, uint32_t bandwidth) {
    AiPlcRingList &ring = *m_channel->opusRing;
    ring.head = ring.head->next;
    std::ranges::copy(samples, ring.head->samples);
    ring.head->sampleCount = static_cast<uint16_t>(samples.size());
    ring.head->bandwidth = bandwidth;
    AiPlcMaintainOpusBuff(m_channel.get(), 0);
}

// Where the frame before was predicted, the prediction goes on into this one: it is faded over,
// since the received audio does not continue it.
void PipelineChannel::JoinPrediction(const AiPlcPkt &placeholder, AiPlcPkt &frame) const {
    const AiPlcPkt &before = *placeholder.prev;
    const int16_t *prediction = nullptr;
    if (IsPredicted(placeholder) && IsPredicted(before)) {
        prediction = placeholder.bands[0];
    } else if (before.pktType == AIPLC_EXTRAPOLATE && before.hasNextPredict == 1) {
        prediction = m_channel->nextPredict;
    }
    if (prediction == nullptr) return;
    AiPlcFuseSmooth(prediction, frame.bands[0], g_aiplcTriangWin16K, AIPLC_BAND_SAMPLES);
    if (!m_is48K) return;
    AiPlc16kFadeIn(frame.bands[1]);
    AiPlc16kFadeIn(frame.bands[2]);
}

}  // namespace aiplc::host
