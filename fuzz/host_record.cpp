// SPDX-License-Identifier: BSD-2-Clause
//
// A host that keeps its record, its packet records and its rates in any state: AiPlcApply stays
// within the areas that the record names.

#include <aiplc/aiplc.h>

#include <algorithm>
#include <bit>
#include <memory>
#include <vector>

#include "fuzz/arbitrary.h"
#include "fuzz/hostile_platform.h"

namespace {

using aiplc::fuzz::FillAudio;
using aiplc::fuzz::Require;

constexpr size_t kMostOutputBytes = 40000;
constexpr int kMostCalls = 64;

// A heap block of exactly this size.
template <typename T>
std::unique_ptr<T[]> Exactly(const std::vector<T> &values) {
    auto block = std::make_unique<T[]>(values.size());
    std::ranges::copy(values, block.get());
    return block;
}

class Host {
  public:
    explicit Host(FuzzedDataProvider &data) : m_data(data) {
        running = this;
        StAiPlcChannel *channel = nullptr;
        Require(AiPlcCreate(&channel, m_channel.get()) == 0);
        m_record.channel = channel;
        m_record.stats = &m_stats;
        m_record.decodeLost = DecodeLost;
        MakeOutputArea();
        Init();
    }
    ~Host() { (void)AiPlcAsyncDestroy(m_channel.get()); }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    void Step() {
        switch (m_data.ConsumeIntegralInRange<int>(0, 15)) {
            case 0:
                (void)AiPlcAsyncDestroy(m_channel.get());
                if (m_data.ConsumeBool()) Init();
                break;
            case 1:
                SetRate();
                break;
            case 2:
                MakeOutputArea();
                break;
            case 3:
                m_record.stats = m_data.ConsumeBool() ? &m_stats : nullptr;
                m_record.decodeLost = m_data.ConsumeBool() ? DecodeLost : nullptr;
                break;
            case 4:
                m_stats.counterMode = m_data.ConsumeIntegral<uint16_t>();
                m_stats.sampleRate = m_data.ConsumeIntegral<uint32_t>();
                m_record.altCounterSelect = m_data.ConsumeBool() ? 1 : 0;
                break;
            case 5:  // the host takes some of the output, or says so
                Stream().outPending = m_data.ConsumeIntegral<uint16_t>();
                Stream().outRead = OutputPosition();
                break;
            case 6:
                ReceiveAny();
                break;
            case 7:
            case 8:
            case 9:
                for (auto frames = m_data.ConsumeIntegralInRange<int>(1, 8); frames > 0; --frames)
                    Lose();
                break;
            default:
                for (auto frames = m_data.ConsumeIntegralInRange<int>(1, 4); frames > 0; --frames)
                    ReceiveNext();
                break;
        }
    }

  private:
    inline static Host *running = nullptr;

    static int32_t DecodeLost(uint32_t userArg, AiPlcDecodeRequest *request) {
        Require(userArg == 7);
        FuzzedDataProvider &data = running->m_data;
        FillAudio(data, {request->pcmOut, AIPLC_FRAME_SAMPLES_48K});
        const uint16_t counts[] = {320, 960, data.ConsumeIntegral<uint16_t>()};
        request->pcmOutSamples = data.PickValueInArray(counts);
        return data.ConsumeIntegral<uint8_t>() < 0xF0 ? 0 : 1;
    }

    AiPlcHostStream &Stream() { return m_record.streams[0]; }

    void Init() {
        (void)AiPlcAsyncDestroy(m_channel.get());
        (void)AiPlcAsyncInit(m_channel.get(), 1);
        SetRate();
    }

    void SetRate() {
        const uint32_t counts[] = {320, 960, m_data.ConsumeIntegralInRange<uint32_t>(0, 1000),
                                   m_data.ConsumeIntegral<uint32_t>()};
        m_channel->frameSamples = m_data.PickValueInArray(counts);
        m_channel->is48K = m_data.ConsumeIntegralInRange<uint32_t>(0, 2);
    }

    // In the area, a little beside it or null.
    uint8_t *OutputPosition() {
        const auto offset = m_data.ConsumeIntegralInRange<int32_t>(-2000, kMostOutputBytes + 2000);
        if (offset == -2000) return nullptr;
        const auto base = reinterpret_cast<uintptr_t>(m_output.get());
        return std::bit_cast<uint8_t *>(base + static_cast<uintptr_t>(intptr_t{offset}));
    }

    void MakeOutputArea() {
        const auto bytes = m_data.ConsumeIntegralInRange<size_t>(0, kMostOutputBytes);
        m_output = std::make_unique<uint8_t[]>(bytes);
        AiPlcHostStream &stream = Stream();
        stream.outBase = stream.outRead = stream.outWrite = m_output.get();
        stream.outEnd = m_output.get() + bytes;
        if (m_data.ConsumeBool()) stream.outWrite = OutputPosition();
    }

    void Apply() {
        const uint16_t index = m_data.ConsumeIntegral<uint8_t>() == 0xFF ? 8 : 0;
        (void)AiPlcApply(&m_record, 7, index);
    }

    void Lose() {
        Stream().inAvailable = static_cast<uint16_t>(m_data.ConsumeBool() ? 0 : 1);
        Stream().pktWordsLeft = 0;
        Apply();
    }

    void AddRecord(std::vector<uint16_t> &words) {
        const auto frame = std::min(m_channel->frameSamples, uint32_t{1000});
        std::vector<int16_t> audio(frame);
        FillAudio(m_data, audio);
        const auto bandwidth = static_cast<uint16_t>(m_data.ConsumeBool() ? 1101 : 1105);
        words.insert(words.end(), {static_cast<uint16_t>(4 + frame), m_sequence++, bandwidth, 0});
        words.insert(words.end(), audio.begin(), audio.end());
    }

    void ReceiveNext() {
        std::vector<uint16_t> words;
        AddRecord(words);
        Stream().inAvailable = static_cast<uint16_t>(m_channel->frameSamples);
        m_record.packetCount = 1;
        ApplyTo(words);
    }

    // Any number of records, with any header words and any end.
    void ReceiveAny() {
        std::vector<uint16_t> words;
        const auto records = m_data.ConsumeIntegralInRange<int>(0, 10);
        for (int i = 0; i < records; ++i) {
            if (m_data.ConsumeBool()) m_sequence = m_data.ConsumeIntegral<uint16_t>();
            const size_t header = words.size();
            AddRecord(words);
            if (m_data.ConsumeBool()) words[header] = m_data.ConsumeIntegral<uint16_t>();
        }
        if (m_data.ConsumeBool())
            words.resize(m_data.ConsumeIntegralInRange<size_t>(0, words.size()));
        Stream().inAvailable = m_data.ConsumeBool() ? static_cast<uint16_t>(m_channel->frameSamples)
                                                    : m_data.ConsumeIntegral<uint16_t>();
        m_record.packetCount = m_data.ConsumeBool() ? records : m_data.ConsumeIntegral<int32_t>();
        ApplyTo(words);
    }

    void ApplyTo(const std::vector<uint16_t> &words) {
        const auto area = Exactly(words);
        AiPlcHostStream &stream = Stream();
        stream.pktCursor = m_data.ConsumeIntegral<uint8_t>() == 0xFF ? nullptr : area.get();
        stream.pktWordsLeft = static_cast<uint16_t>(words.size());
        stream.inReadPos = reinterpret_cast<uint8_t *>(area.get());
        stream.inEndPos = m_data.ConsumeBool()
                              ? std::bit_cast<uint8_t *>(m_data.ConsumeIntegral<uintptr_t>())
                              : stream.inReadPos;
        Apply();
        stream.pktCursor = nullptr;
        stream.pktWordsLeft = 0;
    }

    FuzzedDataProvider &m_data;
    std::unique_ptr<StAiPlcChannel> m_channel = std::make_unique<StAiPlcChannel>();
    std::unique_ptr<uint8_t[]> m_output;
    AiPlcHostStats m_stats{0, 0, 1, 48000};
    AiPlcHostContext m_record{};
    uint16_t m_sequence = 0;
};

void Ignore(const char *, int32_t, const char *, ...) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    AiplcRegLog(Ignore);
    FuzzedDataProvider data(bytes, size);
    const aiplc::fuzz::HostilePlatform platform(data);
    Host host(data);
    for (int calls = 0; calls < kMostCalls && data.remaining_bytes() > 0; ++calls)
        host.Step();
    return 0;
}
