// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_RECEIVER_JITTER_BUFFER_H
#define AIPLC_RECEIVER_JITTER_BUFFER_H

#include <aiplc/receiver.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "host/output_frame.h"
#include "host/receiver.h"
#include "receiver/delay_estimator.h"
#include "receiver/time_stretch.h"

namespace aiplc::receiver {

// Decides when the engine's frames are due, and stretches its output where that has to change:
// because the network's delays have, or because sender and player have different clocks.
//
// A packet that misses the moment at which its frame is due is still used for 60 ms, until the
// frame is played. So the wait before that moment is the delay of 97 % of the packets less 60 ms,
// but no less than the delay of 90 %: a packet that is not there when its frame is due looks lost,
// costs a prediction, and is missing as the far side of a real loss.
//
// Time is what has been pulled. How much the clock of the arrivals is ahead of it is taken from the
// arrivals themselves, its smallest value of the last two seconds: that is a caller who pulls on
// time. All times are in 48 kHz samples.
//
// States: nothing arrived (silence) -> waiting, from the first packet until it has been there for
// as long as the delay aimed at (silence) -> playing.
class JitterBuffer {
  public:
    // engine outlives this object.
    JitterBuffer(const AiPlcReceiverOptions &options, host::Receiver &engine);

    // A packet was pushed into the engine. arrivalUs: -1 when it is now. duration: of its audio,
    // 0 when that is not known.
    void Arrive(uint32_t timestamp, int64_t arrivalUs, int64_t duration);
    // The next packet is another sender's.
    void ExpectNewSource() { m_delays.Restart(); }

    // The next audio, 10 to 30 ms, valid until the next call. frame: what it was made of, unchanged
    // while waiting.
    std::span<const int16_t> Next(host::OutputFrame &frame);
    // So many samples at the receiver's rate were handed to the caller, of what Next returned.
    void Pulled(size_t samples);

    void FillIn(AiPlcReceiverStatistics &statistics) const;

  private:
    // How long a packet of the frame will have been there when the frame is played.
    struct Stay {
        int64_t frame = -1;
        int64_t time = 0;
    };

    [[nodiscard]] int64_t NextFrame() const { return m_lastFrame + 1 + kLookAheadFrames; }
    [[nodiscard]] int64_t Wanted() const;
    [[nodiscard]] int64_t Excess() const;
    [[nodiscard]] bool IsWaiting();
    void NoteStay(int64_t start, int64_t duration, int64_t stay);
    void CountEmitted(const host::OutputFrame &frame);
    std::span<const int16_t> Stretch(std::span<const int16_t> samples);

    static constexpr int64_t kLookAheadFrames = AIPLC_LOOK_AHEAD_FRAMES;

    AiPlcReceiverOptions m_options;
    host::Receiver &m_engine;
    int64_t m_unitsPerSample;
    DelayEstimator m_delays;
    WindowMinimum m_clockOffset;  // arrival clock minus pulled time
    TimeStretch m_stretch;
    std::array<int16_t, 480> m_silence{};  // 10 ms
    std::array<Stay, 256> m_stays;         // by frame modulo the size

    int64_t m_pulled = 0;                   // time that was pulled
    int64_t m_queued = 0;                   // handed out by Next, not pulled yet
    std::optional<int64_t> m_firstArrival;  // on the arrivals' clock
    int64_t m_lastArrival = 0;
    bool m_aligned = false;  // a pull has found a packet
    bool m_playing = false;
    int64_t m_lastFrame = -1 - kLookAheadFrames;  // that the engine put out
    // Pulled time minus unwrapped timestamp at which audio is due.
    std::optional<int64_t> m_due;
    int64_t m_wanted = 0;  // delay before a frame is due

    double m_delaySum = 0;  // of emitted samples, seconds
    double m_targetSum = 0;
    uint64_t m_emitted = 0;
    uint64_t m_inserted = 0;
    uint64_t m_removed = 0;
};

}  // namespace aiplc::receiver

#endif
