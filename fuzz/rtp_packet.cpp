// SPDX-License-Identifier: BSD-2-Clause
//
// A sender of any packets, at any time and in any order: each Pull gives one frame, and the
// statistics add up.

#include <algorithm>
#include <cstring>
#include <numeric>

#include "fuzz/arbitrary.h"
#include "host/receiver.h"
#include "host/redundant_audio.h"
#include "tests/support/ready_adapter.h"

namespace {

using aiplc::fuzz::Require;
using aiplc::host::Receiver;
using aiplc::host::Statistics;

constexpr int kMostSteps = 100;
constexpr int kRedType = 63;

// Stands for the worker.
class Oracle : public ReadyAdapter {
  public:
    explicit Oracle(FuzzedDataProvider &data) : m_data(data) {}
    int Process(InoutDetail &record, int /*timeoutMs*/) override {
        std::memcpy(record.AudioOut, record.AudioIn, sizeof record.AudioOut);
        return m_data.ConsumeIntegralInRange<int>(0, 3) == 3 ? -1 : 0;
    }

  private:
    FuzzedDataProvider &m_data;
};

// An orderly sender of 20 ms packets, and what else the network makes of it.
class Sender {
  public:
    const aiplc::host::RtpPacket &Next(FuzzedDataProvider &data) {
        m_packet.copies.clear();
        if (data.ConsumeBool()) m_packet.copies.push_back({960, m_packet.payload});
        Advance(1);
        if (data.ConsumeBool()) {
            // SILK or CELT alone or both, at any bandwidth; one frame of 20 ms.
            static constexpr uint8_t kHeaders[] = {0x08, 0x28, 0x48, 0x4C, 0x68, 0x78, 0x98, 0xF8};
            m_packet.payload = {data.PickValueInArray(kHeaders)};
            AddBytes(data);
        }
        return m_packet;
    }
    const aiplc::host::RtpPacket &Any(FuzzedDataProvider &data) {
        if (data.ConsumeBool()) m_packet.sequenceNumber = data.ConsumeIntegral<uint16_t>();
        if (data.ConsumeBool()) m_packet.timestamp = data.ConsumeIntegral<uint32_t>();
        m_packet.payload.clear();
        AddBytes(data);
        if (data.ConsumeBool()) Unpack();
        return m_packet;
    }
    // Sends packets into the void, or goes back to those sent before.
    void Advance(int packets) {
        m_packet.sequenceNumber = static_cast<uint16_t>(m_packet.sequenceNumber + packets);
        m_packet.timestamp += 960U * static_cast<uint32_t>(packets);
    }

  private:
    // Takes the payload for redundant audio. What is read from it can be written and read again.
    void Unpack() {
        const auto blocks = aiplc::host::ParseRedundantAudio(m_packet.payload, -1, kRedType);
        if (!blocks) return;
        aiplc::host::RtpPacket packet = m_packet;
        TakeBlocks(*blocks, packet);
        const auto type = static_cast<uint8_t>(blocks->payloadType);
        const std::vector<uint8_t> written = WriteRedundantAudio(packet, type);
        const auto again = aiplc::host::ParseRedundantAudio(written, type, kRedType);
        Require(again && again->copies.size() == packet.copies.size());
        Require(std::ranges::equal(again->primary, packet.payload));
        m_packet = packet;
    }
    void AddBytes(FuzzedDataProvider &data) {
        const auto bytes = data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 31));
        m_packet.payload.insert(m_packet.payload.end(), bytes.begin(), bytes.end());
        m_packet.payload.shrink_to_fit();
    }

    aiplc::host::RtpPacket m_packet;
};

void CheckStatistics(const Statistics &statistics, uint64_t pushed, uint64_t pulled) {
    Require(statistics.packetsReceived == pushed);
    Require(statistics.packetsDiscarded + statistics.packetsDuplicated +
                statistics.packetsUndecodable <=
            pushed);
    const auto &frames = statistics.framesBySource;
    Require(std::accumulate(std::begin(frames), std::end(frames), uint64_t{0}) == pulled);
    Require(statistics.concealedSamples <= statistics.totalSamplesReceived);
    Require(statistics.silentConcealedSamples <= statistics.concealedSamples);
    Require(statistics.fecPacketsDiscarded <= statistics.fecPacketsReceived);
    Require(statistics.redundantBlocksUsed <= statistics.redundantBlocksReceived);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    Oracle worker(data);
    const uint32_t rate = data.ConsumeBool() ? 48000 : 16000;
    Receiver receiver({.sampleRate = rate,
                       .useFec = data.ConsumeBool(),
                       .useLatePackets = data.ConsumeBool(),
                       .codecConceals = data.ConsumeBool(),
                       .adapter = &worker});
    Sender sender;
    uint64_t pushed = 0;
    uint64_t pulled = 0;
    for (int steps = 0; steps < kMostSteps && data.remaining_bytes() > 0; ++steps) {
        const auto step = data.ConsumeIntegralInRange<int>(0, 7);
        if (step == 0) sender.Advance(data.ConsumeIntegralInRange<int>(-8, 8));
        if (step == 1) receiver.Push(sender.Any(data));
        if (step >= 2 && step <= 5) receiver.Push(sender.Next(data));
        pushed += step >= 1 && step <= 5 ? 1 : 0;
        if (step >= 3) {
            const auto &frame = receiver.Pull();
            ++pulled;
            Require(frame.samples.size() == rate / 50 && frame.concealedSamples <= rate / 50);
        }
    }
    CheckStatistics(receiver.GetStatistics(), pushed, pulled);
    return 0;
}
