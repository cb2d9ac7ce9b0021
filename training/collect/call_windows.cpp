// SPDX-License-Identifier: BSD-2-Clause

#include "training/collect/call_windows.h"

#include <aiplc/adapter.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "host/receiver.h"
#include "training/collect/loss_free_decode.h"

namespace aiplc::training {
namespace {

constexpr int64_t kFrameClock = 960;  // 20 ms of RTP time
constexpr int kRefused = -1;          // what an adapter says whose worker gives no answer
constexpr int kFrames = AIPLC_WINDOW_FRAMES;

std::span<const int16_t> Frame(const Window &window, size_t slot) {
    return std::span(window).subspan(slot * AIPLC_BAND_SAMPLES, AIPLC_BAND_SAMPLES);
}

bool IsGap(const Window &window, size_t slot) {
    return std::ranges::all_of(Frame(window, slot), [](int16_t s) { return s == 0; });
}

// The mode that requests a window with such gaps at its end; 0: none does. Wrong only where a
// received frame is digital silence.
int ModeOfGaps(const Window &window) {
    if (IsGap(window, 7)) return AIPLC_INFER_BURST;
    if (IsGap(window, 6)) {
        return IsGap(window, 5) ? AIPLC_INFER_GAP2_AHEAD1 : AIPLC_INFER_GAP1_AHEAD1;
    }
    if (!IsGap(window, 5)) return AIPLC_INFER_NONE;
    return IsGap(window, 4) ? AIPLC_INFER_GAP2_AHEAD2 : AIPLC_INFER_GAP1_AHEAD2;
}

// Frames by which a window of the mode ends before the newest frame handed in, or about to be: a
// request is for the frame about to be played, three before that one, by library or host.
int64_t FramesBehind(int mode) {
    switch (mode) {
        case AIPLC_INFER_GAP1_AHEAD1:
            return 2;
        case AIPLC_INFER_GAP2_AHEAD2:
            return 0;
        default:
            return 1;
    }
}

// Stands where the worker would: answers the requests of one call and keeps them.
class RequestCollector : public AiplcAdapterInterface {
  public:
    RequestCollector(const CallSetup &setup, const LowBand &target)
        : m_setup(setup), m_target(target) {}

    int Create() override { return 0; }
    int Init() override { return 0; }
    int Delete() override { return 0; }
    int Process(InoutDetail &record, int timeoutMs) override;

    void SetTick(int64_t tick) { m_tick = tick; }
    // Drops the request of this tick, which ended in this frame, if it was made in another mode.
    void Settle(const host::OutputFrame &frame);

    std::vector<WindowRecord> windows;
    uint64_t ambiguous = 0;

  private:
    const CallSetup &m_setup;
    const LowBand &m_target;
    worker::Candidates m_candidates;
    int64_t m_tick = 0;
    bool m_asked = false;
};

int RequestCollector::Process(InoutDetail &record, int /*timeoutMs*/) {
    WindowRecord request = m_setup.facts;
    std::memcpy(request.window.data(), record.AudioIn, sizeof record.AudioIn);
    Window answer;
    const bool usable = m_candidates.Make(request.window, answer);
    for (size_t kind = 0; usable && kind < worker::Candidates::kCount; ++kind)
        request.candidates[kind] = m_candidates[static_cast<worker::Candidates::Kind>(kind)];
    request.mode = usable ? static_cast<uint8_t>(ModeOfGaps(request.window)) : uint8_t{0};
    const int64_t newest = m_tick - FramesBehind(request.mode);
    request.newestFrame = static_cast<uint32_t>(newest);
    for (int64_t slot = 0; slot < kFrames; ++slot)
        m_target.CopyFrame(newest - kFrames + 1 + slot,
                           &request.target[static_cast<size_t>(slot * AIPLC_BAND_SAMPLES)]);
    windows.push_back(request);
    m_asked = true;
    if (m_setup.refuse) return kRefused;
    if (m_setup.answer && usable) m_setup.answer(request, answer);
    std::memcpy(record.AudioOut, answer.data(), sizeof record.AudioOut);
    return 0;
}

void RequestCollector::Settle(const host::OutputFrame &frame) {
    if (!m_asked) return;
    m_asked = false;
    WindowRecord &request = windows.back();
    if (request.mode != (frame.secondLook ? frame.inferMode : frame.decidedMode)) {
        windows.pop_back();
        ++ambiguous;
    } else if (frame.secondLook) {
        request.flags |= WindowRecord::kSecondLook;
    }
}

bool IsReceived(AiPlcFrameSource source) {
    return source == AIPLC_SOURCE_DECODED || source == AIPLC_SOURCE_LATE ||
           source == AIPLC_SOURCE_FEC || source == AIPLC_SOURCE_DTX;
}

}  // namespace

CallResult CollectWindows(const CallSetup &setup, std::span<const int16_t> pcm) {
    host::Sender sender(setup.sender);
    std::vector<host::RtpPacket> packets = sender.Push(pcm);
    for (host::RtpPacket &packet : sender.Flush())
        packets.push_back(std::move(packet));
    CallResult result;
    if (packets.empty()) return result;

    const LowBand target = DecodeLossFree(packets, setup.outputRate, setup.decoderComplexity);
    RequestCollector collector(setup, target);
    host::Receiver receiver({.sampleRate = setup.outputRate,
                             .useSecondLook = setup.secondLook && !setup.refuse,
                             .decoderComplexity = setup.decoderComplexity,
                             .adapter = &collector});
    size_t next = 0;
    for (int64_t tick = 0; tick < target.Frames() + host::Receiver::kLookAheadFrames; ++tick) {
        for (; next < packets.size(); ++next) {
            const int64_t due = (packets[next].timestamp - packets[0].timestamp) / kFrameClock;
            if (due > tick) break;
            if (next >= setup.lost.size() || !setup.lost[next]) receiver.Push(packets[next]);
        }
        collector.SetTick(tick);
        const host::OutputFrame &frame = receiver.Pull();
        collector.Settle(frame);
        if (frame.frame < 0) continue;
        result.sources.push_back(static_cast<AiPlcFrameSource>(frame.source));
        result.output.insert(result.output.end(), frame.samples.begin(), frame.samples.end());
    }
    result.windows = std::move(collector.windows);
    std::erase_if(result.windows, [&target](const WindowRecord &record) {
        return record.newestFrame >= target.Frames();  // the silence after the call
    });
    result.ambiguous = collector.ambiguous;
    for (WindowRecord &record : result.windows) {
        for (int slot = 0; slot < kFrames; ++slot) {
            const int64_t frame = int64_t{record.newestFrame} - kFrames + 1 + slot;
            const bool there = frame >= 0 && frame < static_cast<int64_t>(result.sources.size()) &&
                               IsReceived(result.sources[static_cast<size_t>(frame)]);
            if (there) record.received = static_cast<uint8_t>(record.received | (1U << slot));
        }
    }
    return result;
}

}  // namespace aiplc::training
