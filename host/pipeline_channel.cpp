// SPDX-License-Identifier: BSD-2-Clause

#include "host/pipeline_channel.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/worker_namespace.h"

namespace aiplc::host {
namespace {

constexpr size_t kRecordHeaderWords = 4;
constexpr int kUsualFailures = 3;     // in a row; from the next one on the worker is left alone
constexpr int kFirstRestFrames = 12;  // doubled with each failure
constexpr int kLongestRest = 8;       // 31 s
constexpr float kNoRequest = -1;      // in the place of a request's time

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

PipelineChannel::PipelineChannel(const Options &options)
    : m_frameSamples(options.sampleRate / 50),
      m_useSecondLook(options.useSecondLook),
      m_hasAdapter(options.adapter != nullptr),
      m_record(kRecordHeaderWords + m_frameSamples),
      m_outputArea(m_frameSamples + AIPLC_OUTPUT_RESERVE_BYTES / sizeof(int16_t)) {
    auto block = std::make_unique<StAiPlcChannel>();
    StAiPlcChannel *channel = nullptr;
    if (AiPlcCreate(&channel, block.get()) != 0)
        throw std::runtime_error("concealment channel: AiPlcCreate failed");
    m_channel.reset(block.release());
    const bool startWorker = options.useWorker && options.adapter == nullptr;
    std::optional<WorkerNamespace> ownNamespace;
    if (startWorker) ownNamespace.emplace();
    const int32_t result = AiPlcAsyncInit(m_channel.get(), startWorker ? 1 : 0);
    ownNamespace.reset();
    if (m_channel->opusRing == nullptr) {
        throw std::runtime_error("concealment channel: AiPlcAsyncInit returned " +
                                 std::to_string(result));
    }
    if (options.adapter != nullptr) m_channel->adapter = options.adapter;
    m_channel->is48K = options.sampleRate == 48000 ? 1 : 0;
    m_channel->frameSamples = m_frameSamples;
    m_history.emplace(*m_channel);

    m_stats.counterMode = 1;
    m_stats.sampleRate = options.sampleRate;
    m_host.stats = &m_stats;
    m_host.decodeLost = DecodeLost;
    m_host.channel = m_channel.get();
    AiPlcHostStream &stream = m_host.streams[0];
    stream.outBase = Bytes(m_outputArea.data());
    stream.outEnd = stream.outBase + m_outputArea.size() * sizeof(int16_t);
}

PipelineChannel::~PipelineChannel() = default;

void PipelineChannel::UseAdapter(std::unique_ptr<AiplcAdapterInterface> adapter) noexcept {
    m_adapter = std::move(adapter);
    m_channel->adapter = m_adapter.get();
    m_hasAdapter = true;
}

void PipelineChannel::TakePredictorFrom(PipelineChannel &other) noexcept {
    m_adapter = std::move(other.m_adapter);
    m_hasAdapter = std::exchange(other.m_hasAdapter, false);
    m_channel->adapter = std::exchange(other.m_channel->adapter, nullptr);
    m_channel->sEnableAIPLC = std::exchange(other.m_channel->sEnableAIPLC, int16_t{0});
    m_channel->initTimeMs = other.m_channel->initTimeMs;
}

// Calls the library. Each frame is taken at once, so the output area is always empty before.
void PipelineChannel::Apply(bool isReceived) {
    AiPlcHostStream &stream = m_host.streams[0];
    stream.outRead = stream.outBase;
    stream.outWrite = stream.outBase;
    stream.outPending = 0;

    // A decision and a request overwrite these.
    m_channel->lastInferMode = AIPLC_INFER_NONE;
    m_channel->inferTimeMs = kNoRequest;
    m_decision = {};
    // Without an adapter the library leaves to the codec what it would ask for.
    AiplcAdapterInterface *const adapter = m_channel->adapter;
    const bool rests = m_restFrames > 0;
    if (rests) {
        --m_restFrames;
        m_channel->inferHoldOff = std::max(m_channel->inferHoldOff, 1);
    }
    if (m_useSecondLook) m_decision.secondLook = m_history->LookAgain();
    if (rests) m_channel->adapter = nullptr;
    m_history->BeforeApply(isReceived);
    (void)AiPlcApply(&m_host, 0, 0);
    m_history->AfterApply();
    m_channel->adapter = adapter;
    m_decision.mode = m_channel->lastInferMode;
    m_decision.requested = m_channel->inferTimeMs >= 0;
    if (m_decision.requested) {
        m_decision.failed = m_channel->inferFailed == 1;
        m_decision.timeMs = m_channel->inferTimeMs;
        RestAfterFailures();
    }

    // Before the first received frame the library's silent frame has 960 samples at any rate, and a
    // frame that failed has none.
    const size_t written = std::min<size_t>(stream.outPending, m_frameSamples);
    std::fill(m_outputArea.begin() + static_cast<std::ptrdiff_t>(written),
              m_outputArea.begin() + m_frameSamples, int16_t{0});
    ++m_sequenceNumber;
}

// The library asks again at the next gap, and a worker that is gone costs 10 ms each time.
void PipelineChannel::RestAfterFailures() {
    m_failuresInARow = m_decision.failed ? m_failuresInARow + 1 : 0;
    const int rests = std::min(m_failuresInARow - kUsualFailures, kLongestRest);
    if (rests > 0) m_restFrames = kFirstRestFrames << (rests - 1);
}

void PipelineChannel::WriteRecord(std::span<const int16_t> samples, uint32_t bandwidth) {
    m_record[0] = static_cast<uint16_t>(m_record.size());
    m_record[1] = m_sequenceNumber;
    m_record[2] = static_cast<uint16_t>(bandwidth);
    m_record[3] = static_cast<uint16_t>(bandwidth >> 16);
    std::ranges::copy(samples, m_record.begin() + kRecordHeaderWords);
}

void PipelineChannel::ApplyReceived(std::span<const int16_t> samples, uint32_t bandwidth) {
    WriteRecord(samples, bandwidth);
    // The samples are in the record; the positions only say how many there are.
    AiPlcHostStream &stream = m_host.streams[0];
    stream.inReadPos = Bytes(m_record.data());
    stream.inEndPos = stream.inReadPos + m_frameSamples * sizeof(int16_t);
    stream.inAvailable = static_cast<uint16_t>(m_frameSamples);
    stream.pktCursor = m_record.data();
    stream.pktWordsLeft = static_cast<uint16_t>(m_record.size());
    m_host.packetCount = 1;
    Apply(true);
}

void PipelineChannel::ApplyLost(const ConcealFunction &conceal) {
    const RunningConcealment running(conceal, m_frameSamples);
    AiPlcHostStream &stream = m_host.streams[0];
    stream.inAvailable = 0;
    stream.pktWordsLeft = 0;
    m_host.packetCount = 0;
    Apply(false);
}

}  // namespace aiplc::host
