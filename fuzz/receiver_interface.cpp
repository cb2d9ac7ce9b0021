// SPDX-License-Identifier: BSD-2-Clause
//
// The receiver's C interface with any options, any bytes as RTP packets at any time, and any
// lengths of audio: a call fails by its result alone, and the counters add up.

#include <aiplc/receiver.h>

#include <algorithm>
#include <array>
#include <vector>

#include "fuzz/arbitrary.h"

namespace {

using aiplc::fuzz::Require;

constexpr int kMostSteps = 120;

AiPlcReceiverOptions AnyOptions(FuzzedDataProvider &data) {
    AiPlcReceiverOptions options;
    AiPlcReceiverDefaults(&options);
    options.predictor = AIPLC_PREDICTOR_NONE;
    options.sampleRate = data.ConsumeBool() ? 48000 : 16000;
    options.useFec = data.ConsumeBool() ? 1 : 0;
    options.useLatePackets = data.ConsumeBool() ? 1 : 0;
    options.decoderComplexity = data.ConsumeIntegralInRange(-1, 11);
    options.payloadType = data.ConsumeIntegralInRange(-2, 128);
    options.redPayloadType = data.ConsumeIntegralInRange(-2, 128);
    options.jitterBuffer = data.ConsumeIntegralInRange(-1, 3);
    options.minDelayMs = data.ConsumeIntegralInRange(-1, 2001);
    options.maxDelayMs = data.ConsumeIntegralInRange(-1, 2001);
    return options;
}

// A sender whose packets are orderly unless the input says otherwise.
class Sender {
  public:
    std::vector<uint8_t> Next(FuzzedDataProvider &data) {
        if (data.ConsumeIntegralInRange(0, 7) == 0) {
            m_sequence = data.ConsumeIntegral<uint16_t>();
            m_timestamp = data.ConsumeIntegral<uint32_t>();
        }
        ++m_sequence;
        m_timestamp += 960;
        std::vector<uint8_t> packet = {
            0x80, data.ConsumeBool() ? m_type : data.ConsumeIntegral<uint8_t>()};
        for (const int shift : {8, 0})
            packet.push_back(static_cast<uint8_t>(m_sequence >> shift));
        for (const int shift : {24, 16, 8, 0})
            packet.push_back(static_cast<uint8_t>(m_timestamp >> shift));
        packet.resize(12, data.ConsumeIntegralInRange<uint8_t>(0, 1));  // one of two sources
        const auto bytes = data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 40));
        packet.insert(packet.end(), bytes.begin(), bytes.end());
        packet.shrink_to_fit();
        return packet;
    }

  private:
    uint8_t m_type = 111;
    uint16_t m_sequence = 0;
    uint32_t m_timestamp = 0;
};

void CheckCounters(const AiPlcReceiver *receiver, uint64_t pushed) {
    AiPlcReceiverStatistics counted;
    counted.structSize = sizeof counted;
    Require(AiPlcReceiverGetStatistics(receiver, &counted) == AIPLC_RECEIVER_OK);
    Require(counted.packetsReceived + counted.packetsForeign == pushed);
    Require(counted.concealedSamples <= counted.totalSamplesReceived);
    Require(counted.jitter >= 0 && counted.jitterBufferDelay >= 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    const AiPlcReceiverOptions options = AnyOptions(data);
    AiPlcReceiver *receiver = nullptr;
    const int32_t made = AiPlcReceiverCreate(&receiver, &options);
    Require((made == AIPLC_RECEIVER_OK) == (receiver != nullptr));
    Sender sender;
    uint64_t pushed = 0;
    int64_t arrivalUs = 0;
    std::array<int16_t, 48000> samples{};
    for (int steps = 0; receiver != nullptr && steps < kMostSteps && data.remaining_bytes() > 0;
         ++steps) {
        const auto step = data.ConsumeIntegralInRange(0, 15);
        arrivalUs += data.ConsumeIntegralInRange<int64_t>(-30'000, 60'000);
        if (step == 0) {
            Require(AiPlcReceiverReset(receiver) == AIPLC_RECEIVER_OK);
            pushed = 0;
        } else if (step < 9) {
            const std::vector<uint8_t> packet = sender.Next(data);
            (void)AiPlcReceiverPushRtp(receiver, packet.data(), packet.size(), arrivalUs);
            ++pushed;
        } else {
            const size_t count = step == 9
                                     ? data.ConsumeIntegralInRange<size_t>(0, samples.size())
                                     : options.sampleRate / 100 * static_cast<size_t>(step - 9);
            (void)AiPlcReceiverPull(receiver, samples.data(), count);
        }
    }
    if (receiver != nullptr) CheckCounters(receiver, pushed);
    AiPlcReceiverDestroy(receiver);
    return 0;
}
