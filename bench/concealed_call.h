// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_CONCEALED_CALL_H
#define AIPLC_BENCH_CONCEALED_CALL_H

#include <aiplc/adapter.h>
#include <aiplc/aiplc.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "bench/pace.h"
#include "bench/speech.h"

namespace aiplc::bench {

// The kind of the measured AiPlcApply call, among those that a pattern of losses leads to.
enum class FrameKind {
    received,    // takes a received frame and plays one, nothing lost anywhere
    narrowband,  // the same with narrowband records, which are low-passed
    concealed,   // takes a frame that the codec conceals and plays another such
    predicted,   // takes a received frame, has the worker fill a gap of two, plays its first one
};

enum class Answers {
    none,
    given,
    network
};  // the source of predictions: no request succeeds, an adapter, the worker

// A host without a codec's state: hands the library a decoded call frame by frame.
class ConcealedCall {
  public:
    struct Frame {
        int64_t decodeNs = 0;  // libopus, for the packet of the same tick
        int64_t applyNs = 0;
        std::optional<uint64_t> allocations;
        bool isLate = false;  // the library gave the worker up and took the codec's concealment
    };

    // adapter for Answers::given; it outlives the call. Throws std::runtime_error.
    ConcealedCall(int rate, FrameKind kind, Answers answers, AiplcAdapterInterface *adapter);
    ~ConcealedCall();
    ConcealedCall(const ConcealedCall &) = delete;
    ConcealedCall &operator=(const ConcealedCall &) = delete;

    static int64_t TicksPerFrame(FrameKind kind);

    // Plays on up to the next frame of the kind. around is called straight before and after its
    // AiPlcApply. Throws std::runtime_error when the library treats it as another kind.
    Frame Next(Pace &pace, void (*around)());

  private:
    Frame Tick(bool isReceived, void (*around)());
    void PrepareReceived();
    void PrepareLost();
    void CheckKind() const;

    OpusCall m_speech;
    FrameKind m_kind;
    StAiPlcChannel m_channel{};
    AiPlcHostContext m_host{};
    AiPlcHostStats m_stats{};
    std::vector<uint16_t> m_record;
    std::vector<int16_t> m_output;
    uint16_t m_sequenceNumber = 0;
};

}  // namespace aiplc::bench

#endif
