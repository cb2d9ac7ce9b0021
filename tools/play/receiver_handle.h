// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RECEIVER_HANDLE_H
#define AIPLC_TOOLS_RECEIVER_HANDLE_H

#include <aiplc/aiplc.h>
#include <aiplc/receiver.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace aiplc::tools {

// Output trails the packets by this many frames of 20 ms.
inline constexpr int64_t kLookAheadFrames = AIPLC_LOOK_AHEAD_FRAMES;

// The defaults.
AiPlcReceiverOptions DefaultReceiver();
// The defaults without the network, with a decoder of this complexity.
AiPlcReceiverOptions CodecAlone(int decoderComplexity);

// A 20 ms frame as it is played, and what it is made of.
struct PlayedFrame : AiPlcReceiverFrame {
    std::span<const int16_t> samples;  // valid until the next one is pulled

    [[nodiscard]] AiPlcFrameSource Source() const { return static_cast<AiPlcFrameSource>(source); }
};

// Owns a receiver of the library. Its failures are thrown as Failure, with the line that the
// receiver logged.
class ReceiverHandle {
  public:
    explicit ReceiverHandle(AiPlcReceiverOptions options);

    // arrivalUs: -1 when it is not known.
    void Push(std::span<const uint8_t> payload, uint16_t sequence, uint32_t timestamp,
              int64_t arrivalUs);
    // Takes a whole RTP packet; false when it is none of the stream.
    bool PushRtp(std::span<const uint8_t> packet, int64_t arrivalUs);
    const PlayedFrame &Pull();

    [[nodiscard]] AiPlcReceiverStatistics Statistics() const;
    [[nodiscard]] bool PredictorRunning() const {
        return AiPlcReceiverPredictorRunning(m_receiver.get()) == 1;
    }

  private:
    struct Destroyer {
        void operator()(AiPlcReceiver *receiver) const { AiPlcReceiverDestroy(receiver); }
    };

    std::string m_error;             // that the receiver logged last
    std::vector<int16_t> m_samples;  // one frame
    PlayedFrame m_frame{};
    std::unique_ptr<AiPlcReceiver, Destroyer> m_receiver;
};

}  // namespace aiplc::tools

#endif
