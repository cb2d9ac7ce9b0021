// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_SCRIPTED_HOST_H
#define AIPLC_TESTS_SCRIPTED_HOST_H

#include <aiplc/adapter.h>
#include <aiplc/aiplc.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>
#include <vector>

using Samples = std::vector<int16_t>;

// A host for tests: owns channel, record, packet area and output area, without any codec.
class ScriptedHost {
  public:
    explicit ScriptedHost(bool is48K = false, int16_t enable = 0)
        : m_frameSamples(is48K ? 960 : 320) {
        AiPlcAsyncInit(&channel, enable);
        channel.is48K = is48K ? 1 : 2;  // any value but 1 means 16 kHz
        channel.frameSamples = m_frameSamples;
        stats.sampleRate = 50 * m_frameSamples;
        context.stats = &stats;
        context.channel = &channel;
        context.decodeLost = [](uint32_t userArg, AiPlcDecodeRequest *request) {
            return userArg == 7 ? current->conceal(*request) : -1;
        };
        stream.outBase = stream.outRead = stream.outWrite = m_area.data();
        stream.outEnd = m_area.data() + m_area.size();
    }
    ScriptedHost(ScriptedHost &&) = delete;
    ~ScriptedHost() {
        // The library deletes an adapter of its own only.
        if (channel.sEnableAIPLC != 1) channel.adapter = nullptr;
        AiPlcAsyncDestroy(&channel);
    }

    // One call with the given packet area (a heap block of its own, so that a stray read is seen).
    int32_t Apply(const std::vector<uint16_t> &words, int32_t packetCount) {
        std::vector<uint16_t> area = words;
        stream.inReadPos = m_area.data();  // only counted with
        const int64_t bytes = int64_t{2} * m_frameSamples * packetCount;
        stream.inEndPos = m_area.data() + static_cast<ptrdiff_t>(bytes);
        stream.inAvailable = static_cast<uint16_t>(words.empty() ? 0 : m_frameSamples);
        stream.pktCursor = area.data();
        stream.pktWordsLeft = static_cast<uint16_t>(words.size());
        context.packetCount = packetCount;
        current = this;
        return AiPlcApply(&context, 7, 0);
    }
    int32_t Lose() { return Apply({}, 0); }
    int32_t Receive(const std::vector<std::pair<int, Samples>> &frames) {
        std::vector<uint16_t> words;
        for (const auto &[number, pcm] : frames) {
            const int length = static_cast<int>(4 + pcm.size());
            const int header[] = {length, number, bandwidth, bandwidth >> 16};
            std::ranges::copy(header, std::back_inserter(words));
            std::ranges::copy(pcm, std::back_inserter(words));
        }
        return Apply(words, static_cast<int32_t>(frames.size()));
    }
    // Takes what the last call appended.
    Samples Take() {
        const auto *out = reinterpret_cast<const int16_t *>(stream.outRead);
        Samples taken(out, out + std::exchange(stream.outPending, uint16_t{0}));
        stream.outRead = stream.outWrite = stream.outBase;
        return taken;
    }

    StAiPlcChannel channel{};
    AiPlcHostContext context{};
    AiPlcHostStream &stream = context.streams[0];
    AiPlcHostStats stats{};
    int bandwidth = 1105;
    std::function<int32_t(AiPlcDecodeRequest &)> conceal = [this](AiPlcDecodeRequest &request) {
        request.pcmOutSamples = static_cast<uint16_t>(m_frameSamples);
        return 0;
    };

  private:
    inline static thread_local ScriptedHost *current = nullptr;
    uint32_t m_frameSamples;
    std::vector<uint8_t> m_area = std::vector<uint8_t>(30720);  // 16 frames of 960
};

#endif
