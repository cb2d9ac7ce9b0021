// SPDX-License-Identifier: BSD-2-Clause

#include "host/receiver.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/decode_timeline.h"
#include "host/in_process_adapter.h"
#include "host/opus_packet.h"
#include "host/output_account.h"
#include "host/packet_buffer.h"
#include "host/pipeline_channel.h"
#include "host/redundant_audio.h"
#include "host/stream_clock.h"

namespace aiplc::host {
namespace {

constexpr int64_t kLookAhead = Receiver::kLookAheadFrames;
constexpr int64_t kHistory = DecodeTimeline::kSnapshots;
constexpr int kMaxLateInARow = 25;  // then the sender's clock is taken to have fallen behind
constexpr int64_t kLongestOpusFrame = 2880;  // 60 ms
// Packets before the first one, still to be taken when the call starts.
constexpr int64_t kMaxLeadIn = kLookAhead * kFrameUnits;

const ReceiverOptions &Checked(const ReceiverOptions &options) {
    if (options.sampleRate != 16000 && options.sampleRate != 48000) {
        throw std::runtime_error("sample rate is " + std::to_string(options.sampleRate) +
                                 " Hz, must be 16000 or 48000");
    }
    if (options.decoderComplexity < 0 || options.decoderComplexity > 10) {
        throw std::runtime_error("decoder complexity is " +
                                 std::to_string(options.decoderComplexity) + ", must be 0 to 10");
    }
    return options;
}

size_t Slot(int64_t frame) {
    return static_cast<size_t>(frame) % static_cast<size_t>(kHistory);
}

}  // namespace

class Receiver::Engine {
  public:
    Engine(const ReceiverOptions &options, AiPlcPredictor predictor)
        : m_options(Checked(options)),
          m_timeline(options.sampleRate, options.decoderComplexity, options.useFec, m_buffer,
                     options.codecConceals),
          m_channel({.sampleRate = options.sampleRate,
                     .useWorker = predictor == AIPLC_PREDICTOR_WORKER,
                     .useSecondLook = options.useSecondLook,
                     .adapter = options.adapter}),
          m_frame(options.sampleRate / 50),
          m_account(options.sampleRate, m_statistics) {
        m_statistics.initTimeMs = m_channel.InitTimeMs();
        if (predictor == AIPLC_PREDICTOR_IN_PROCESS && options.adapter == nullptr)
            m_channel.UseAdapter(MakeInProcessAdapter(options.modelPath));
    }
    // The same call from its beginning.
    std::unique_ptr<Engine> Renewed() {
        auto engine = std::make_unique<Engine>(m_options, AIPLC_PREDICTOR_NONE);
        engine->m_channel.TakePredictorFrom(m_channel);
        engine->m_statistics.initTimeMs = m_statistics.initTimeMs;
        return engine;
    }

    void Push(const RtpPacket &packet);
    int64_t PositionOf(uint32_t timestamp) const { return m_clock.PositionOf(timestamp, Now()); }
    void ExpectNewSource() { m_clock.ExpectNewSource(); }
    const OutputFrame &Pull();

    Statistics GetStatistics() const {
        Statistics statistics = m_statistics;
        statistics.structSize = sizeof statistics;
        m_account.FillInTimes(statistics);
        return statistics;
    }
    bool PredictorRunning() const { return m_channel.PredictorRunning(); }

  private:
    // Facts about a frame that was handed to the library.
    struct FrameRecord {
        AiPlcFrameSource source = AIPLC_SOURCE_LOST;
        uint32_t concealed = 0;
        HistoryEditor::Memories before{};  // of the channel, before the frame
    };

    int64_t Now() const { return m_timeline.NextFrame() * kFrameUnits; }
    // Start of the oldest frame that can still be rewritten.
    int64_t OpenFrom() const { return std::max<int64_t>(Now() - kLookAhead * kFrameUnits, 0); }

    void Restart();
    bool IsTooLate(const BufferedPacket &packet);
    void InsertPacket(const RtpPacket &packet, const StreamClock::Place &place);
    void InsertCopies(const RtpPacket &packet, const StreamClock::Place &place);
    void Insert(BufferedPacket packet);

    void Start();
    void CloseRedundancy();
    std::optional<int64_t> EarliestRecovery();
    bool CanRecoverByFec(const BufferedPacket &packet) const;
    void Recover(int64_t position);
    void RewriteHistory();
    DecodedFrame NextFrame();
    void ApplyNext();
    void Account(int64_t frame);

    ReceiverOptions m_options;
    Statistics m_statistics{};
    StreamClock m_clock;
    PacketBuffer m_buffer;
    DecodeTimeline m_timeline;
    PipelineChannel m_channel;
    std::array<FrameRecord, kHistory> m_records;    // by frame modulo kHistory
    std::vector<int16_t> m_frame;                   // a frame that the codec concealed
    std::vector<HistoryEditor::Frame> m_rewritten;  // decoded again, straight before the next frame
    int64_t m_appliedFrames = 0;                    // handed to the library so far
    bool m_started = false;                         // a Pull has found a packet
    int m_lateInARow = 0;
    uint64_t m_undecodableOnArrival = 0;
    OutputAccount m_account;
    OutputFrame m_output;
};

// ---- Arrival ------------------------------------------------------------------------------------

void Receiver::Engine::Push(const RtpPacket &packet) {
    ++m_statistics.packetsReceived;
    m_statistics.bytesReceived += packet.payload.size();
    const StreamClock::Arrival arrival = m_clock.Arrive(packet, Now());
    m_statistics.packetsLost = m_clock.PacketsLost();
    if (arrival.verdict == StreamClock::Verdict::duplicate) {
        ++m_statistics.packetsDuplicated;
        return;
    }
    if (arrival.verdict == StreamClock::Verdict::misplaced) {
        ++m_statistics.packetsDiscarded;
        return;
    }
    const bool isRestarted = arrival.verdict == StreamClock::Verdict::restarted;
    if (isRestarted) Restart();
    InsertPacket(packet, arrival.place);
    // Copies from before a restart have no place on the timeline.
    if (!isRestarted) InsertCopies(packet, arrival.place);
}

void Receiver::Engine::InsertPacket(const RtpPacket &packet, const StreamClock::Place &place) {
    const std::optional<OpusPacketInfo> info = ParseOpusPacket(packet.payload);
    if (!info) {
        ++m_undecodableOnArrival;
        m_statistics.packetsUndecodable = m_undecodableOnArrival + m_timeline.Undecodable();
        return;
    }
    if (info->redundancy) ++m_statistics.fecPacketsReceived;

    BufferedPacket buffered;
    buffered.start = place.start;
    buffered.sequence = place.sequence;
    buffered.info = *info;
    buffered.payload = packet.payload;
    if (!IsTooLate(buffered)) {
        m_lateInARow = 0;
        Insert(std::move(buffered));
    } else if (++m_lateInARow >= kMaxLateInARow) {
        m_clock.Realign(packet, Now());
        Restart();
        buffered.start = Now();
        Insert(std::move(buffered));
    } else {
        ++m_statistics.packetsDiscarded;
        if (info->redundancy) ++m_statistics.fecPacketsDiscarded;
    }
}

void Receiver::Engine::InsertCopies(const RtpPacket &packet, const StreamClock::Place &place) {
    for (BufferedPacket &copy : PlaceCopies(packet, place)) {
        ++m_statistics.redundantBlocksReceived;
        // The call begins with a packet: a copy of what came before it would only delay the rest.
        const bool isBeforeCall = !m_started && copy.start < m_buffer.First().value_or(place.start);
        if (isBeforeCall || IsTooLate(copy) || m_buffer.Overlaps(copy)) continue;
        Insert(std::move(copy));
    }
}

void Receiver::Engine::Restart() {
    m_statistics.packetsDiscarded += m_buffer.Clear();
    m_timeline.Restart();
    m_lateInARow = 0;
    ++m_statistics.timelineRestarts;
}

bool Receiver::Engine::IsTooLate(const BufferedPacket &packet) {
    if (!m_started) return packet.start < -kMaxLeadIn;
    return packet.End() <= (m_options.useLatePackets ? OpenFrom() : m_timeline.Cursor());
}

void Receiver::Engine::Insert(BufferedPacket packet) {
    const int64_t cursor = m_timeline.Cursor();
    packet.usableFrom = packet.start;
    if (m_started && packet.start < cursor) {
        packet.lateUntil = cursor;
        if (!m_options.useLatePackets) packet.usableFrom = cursor;
    }
    const bool redundancy = packet.info.redundancy;
    const bool isCopy = packet.isCopy;
    if (m_buffer.Insert(std::move(packet)) || isCopy) return;
    ++m_statistics.packetsDiscarded;
    if (redundancy) ++m_statistics.fecPacketsDiscarded;
}

// ---- Output -------------------------------------------------------------------------------------

const OutputFrame &Receiver::Engine::Pull() {
    if (!m_started && !m_buffer.Empty()) Start();
    if (!m_started) {
        std::ranges::fill(m_frame, int16_t{0});
        m_output = {};
        m_output.samples = m_frame;
        m_account.Count(m_output);
        return m_output;
    }
    if (const std::optional<int64_t> position = EarliestRecovery()) Recover(*position);
    const int64_t frame = m_timeline.NextFrame();
    ApplyNext();
    Account(frame - kLookAhead);
    m_statistics.packetsUndecodable = m_undecodableOnArrival + m_timeline.Undecodable();
    CloseRedundancy();
    m_statistics.packetsDiscarded += m_buffer.EraseBefore(Now() - (kHistory - 1) * kFrameUnits);
    return m_output;
}

// The earliest packet that is there begins frame 0.
void Receiver::Engine::Start() {
    const int64_t first = m_buffer.All().begin()->first;
    m_clock.Shift(-first);
    m_buffer.Shift(-first);
    m_started = true;
}

// Counts the redundancy that can no longer be of use, as the frame before it is being played, and
// the copies that are being played.
void Receiver::Engine::CloseRedundancy() {
    for (auto &[start, packet] : m_buffer.All()) {
        if (start > OpenFrom()) break;
        if (packet.counted || (packet.isCopy && start == OpenFrom())) continue;
        packet.counted = true;
        if (packet.isCopy) {
            m_statistics.redundantBlocksUsed += packet.used ? 1 : 0;
        } else if (packet.info.redundancy && !packet.fecUsed) {
            ++m_statistics.fecPacketsDiscarded;
        }
    }
}

// Where decoding has to start again because a packet came that tells more about frames that have
// not been played: late audio, redundancy, or that nothing was sent; or because none came, which is
// a pause.
std::optional<int64_t> Receiver::Engine::EarliestRecovery() {
    const int64_t cursor = m_timeline.Cursor();
    std::optional<int64_t> earliest;
    const auto add = [&earliest](int64_t position) {
        earliest = std::min(earliest.value_or(position), position);
    };
    for (auto &[start, packet] : m_buffer.All()) {
        if (start > cursor + kLongestOpusFrame) break;
        if (!packet.used && packet.usableFrom < cursor) add(packet.usableFrom);
        if (CanRecoverByFec(packet)) {
            packet.fecTried = true;
            add(packet.FecStart());
        }
    }
    const BufferedPacket *next = m_buffer.After(cursor - 1);
    if (next != nullptr && m_timeline.IsNextSent(*next) && m_timeline.AudioEnd() < cursor &&
        cursor > OpenFrom())
        add(std::max(m_timeline.AudioEnd(), OpenFrom()));
    if (!m_options.expectPauses || m_timeline.NextFrame() < kLookAhead) return earliest;
    // The frame that is played now cannot be changed later: its silence has to be explained now.
    const int64_t silent = std::max(m_timeline.AudioEnd(), OpenFrom());
    const int64_t pauseEnd = m_timeline.PauseEnd(OpenFrom() + kFrameUnits, next);
    if (silent < std::min(pauseEnd, cursor)) {
        m_timeline.TakeForPause(pauseEnd);
        add(silent);
    }
    return earliest;
}

bool Receiver::Engine::CanRecoverByFec(const BufferedPacket &packet) const {
    if (!m_options.useFec || !packet.OffersFec() || packet.used || packet.fecTried) return false;
    const int64_t end = std::min(packet.start, m_timeline.Cursor());
    const bool paused = m_timeline.IsNextSent(packet);
    for (int64_t position = std::max(packet.FecStart(), OpenFrom()); position < end;) {
        const int64_t frame = position / kFrameUnits;
        if (frame >= m_timeline.NextFrame()) break;
        const FrameRecord &record = m_records[Slot(frame)];
        if (record.concealed > 0 || (record.source == AIPLC_SOURCE_DTX && !paused)) return true;
        position = (frame + 1) * kFrameUnits;
    }
    return false;
}

// Decodes everything from position on again, up to the next frame; what can still be played goes
// into m_rewritten.
void Receiver::Engine::Recover(int64_t position) {
    const int64_t now = m_timeline.NextFrame();
    const int64_t open = std::max<int64_t>(now - kLookAhead, 0);
    int64_t from = std::max<int64_t>(position / kFrameUnits, now - (kHistory - 1));
    while (from < now && !m_timeline.CanRestore(from))
        ++from;
    if (from >= now) return;
    m_timeline.Restore(from);
    for (int64_t frame = from; frame < now; ++frame) {
        FrameRecord &record = m_records[Slot(frame)];
        m_timeline.TakeSnapshot();
        const DecodedFrame decoded = NextFrame();
        record.source = decoded.source;
        record.concealed = decoded.concealed;
        if (frame < open) continue;
        m_rewritten.push_back({{decoded.samples.begin(), decoded.samples.end()},
                               decoded.bandwidth,
                               decoded.IsLost()});
    }
}

// Puts the frames that were decoded again in the place of those that the library holds.
void Receiver::Engine::RewriteHistory() {
    HistoryEditor &history = m_channel.History();
    const auto frames = static_cast<int64_t>(m_rewritten.size());
    for (int64_t i = 0; i < frames; ++i) {
        FrameRecord &record = m_records[Slot(m_appliedFrames - frames + i)];
        if (i == 0) history.Rewind(frames, record.before);
        record.before = history.SaveMemories();
        history.Rewrite(m_rewritten[static_cast<size_t>(i)]);
    }
    m_rewritten.clear();
}

// The next frame of the timeline; samples are there for a lost one too.
DecodedFrame Receiver::Engine::NextFrame() {
    const bool startUp = m_timeline.NextFrame() < PipelineChannel::kStartUpFrames;
    DecodedFrame decoded = m_timeline.Next();
    if (!decoded.IsLost()) return decoded;
    m_timeline.Conceal(m_frame);
    decoded.samples = m_frame;
    // The library takes no lost frames while it starts up.
    if (startUp) decoded.source = AIPLC_SOURCE_CODEC;
    return decoded;
}

void Receiver::Engine::ApplyNext() {
    const int64_t now = m_timeline.NextFrame();
    m_timeline.TakeSnapshot();
    const bool startUp = now < PipelineChannel::kStartUpFrames;
    const DecodedFrame decoded = startUp ? NextFrame() : m_timeline.Next();
    RewriteHistory();

    FrameRecord &record = m_records[Slot(now)];
    record.before = m_channel.History().SaveMemories();
    record.source = decoded.source;
    record.concealed = decoded.concealed;
    if (decoded.IsLost()) {
        m_channel.ApplyLost([this](std::span<int16_t> frame) { m_timeline.Conceal(frame); });
    } else {
        m_channel.ApplyReceived(decoded.samples, decoded.bandwidth);
    }
    m_appliedFrames = now + 1;
}

void Receiver::Engine::Account(int64_t frame) {
    const FrameRecord handedIn = frame < 0 ? FrameRecord{} : m_records[Slot(frame)];
    m_output = DescribeOutput(m_channel, frame, handedIn.source, handedIn.concealed);
    m_account.Count(m_output);
}

// ---- The interface ------------------------------------------------------------------------------

Receiver::Receiver(const ReceiverOptions &options)
    : m_engine(std::make_unique<Engine>(
          options, options.adapter == nullptr ? options.predictor : AIPLC_PREDICTOR_NONE)) {}
Receiver::~Receiver() = default;

void Receiver::Push(const RtpPacket &packet) {
    m_engine->Push(packet);
}
int64_t Receiver::PositionOf(uint32_t timestamp) const {
    return m_engine->PositionOf(timestamp);
}
void Receiver::ExpectNewSource() {
    m_engine->ExpectNewSource();
}
const OutputFrame &Receiver::Pull() {
    return m_engine->Pull();
}
void Receiver::Reset() {
    m_engine = m_engine->Renewed();
}
Statistics Receiver::GetStatistics() const {
    return m_engine->GetStatistics();
}
bool Receiver::PredictorRunning() const {
    return m_engine->PredictorRunning();
}

}  // namespace aiplc::host
