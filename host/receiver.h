// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_RECEIVER_H
#define AIPLC_HOST_RECEIVER_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "host/output_frame.h"
#include "host/rtp_packet.h"
#include "host/statistics.h"

class AiplcAdapterInterface;

namespace aiplc::host {

struct ReceiverOptions {
    uint32_t sampleRate = 48000;  // of the output: 16000 or 48000
    // Who fills the gaps: AIPLC_PREDICTOR_NONE leaves them all to the codec.
    AiPlcPredictor predictor = AIPLC_PREDICTOR_WORKER;
    std::string modelPath{};     // of AIPLC_PREDICTOR_IN_PROCESS; empty: ModelLocation()
    bool useSecondLook = true;   // ask it for single lost frames too, which the library would not
    bool useFec = true;          // recover from the redundancy of the packet after a loss
    bool useLatePackets = true;  // take packets that come up to 60 ms after their frame was due
    // Silence on the wire behind audio without speech is a pause until a sequence number says that
    // packets were lost. false: only behind a packet of at most 2 bytes, which announces it.
    bool expectPauses = true;
    bool codecConceals = true;  // false: silence in place of what the codec would conceal
    // 0..10, of the decoder of libopus 1.5 and later. From 5 on it conceals with a network, from 6
    // on it also enhances received wideband speech, which is rated higher (docs/model.md) and costs
    // the audio thread more time.
    int decoderComplexity = 10;
    // Takes the predictor's place when not null. The caller's, and it outlives the receiver. Only
    // Process is called.
    AiplcAdapterInterface *adapter = nullptr;
};

// The network's weights are missing or damaged.
class ModelFault : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The receiving end of one Opus call: packets in, in any order, one 20 ms frame out per Pull, three
// frames behind the newest. One thread. Each receiver has a worker and a namespace of its own;
// where AIPLC_NAMESPACE is set they all use that one, and there must be one receiver at a time
// only: in a shared namespace receivers play each other's audio.
class Receiver {
  public:
    // Starts the worker or loads the weights when asked to. Starting a worker may block for up to
    // 8 s, and as long for each receiver that another thread starts before; AIPLC_NAMESPACE is
    // changed meanwhile, so that no other thread may use the environment (setenv(3)). A worker that
    // does not start is no error. Throws std::runtime_error for a rate or complexity out of range,
    // or when decoder or channel cannot be made, ModelFault, or std::bad_alloc.
    explicit Receiver(const ReceiverOptions &options);
    ~Receiver();
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;

    // The packet arrives now. Any content, any order, any number of times.
    void Push(const RtpPacket &packet);

    // Where audio of this RTP timestamp is played, after its packet was pushed: 48 kHz samples
    // since the start of frame 0.
    int64_t PositionOf(uint32_t timestamp) const;

    // The next packet is the first one of another sender, which goes on with the call.
    void ExpectNewSource();

    // The next 20 ms of output; to be called every 20 ms. The first call that finds a packet starts
    // the call's timeline; before it the output is silence. The result is overwritten by the next
    // Pull. Blocks at most 26 ms, and only when the worker is late; a predictor in this process
    // takes the time that it needs.
    const OutputFrame &Pull();

    // Begins a new call with the same options and the same predictor. When it throws, as the
    // constructor does, the old call goes on.
    void Reset();

    // Output trails the packets by this many frames.
    static constexpr int kLookAheadFrames = AIPLC_LOOK_AHEAD_FRAMES;

    Statistics GetStatistics() const;
    // Whether the predictor can be asked.
    bool PredictorRunning() const;

  private:
    class Engine;
    std::unique_ptr<Engine> m_engine;
};

}  // namespace aiplc::host

#endif
