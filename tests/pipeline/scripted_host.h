// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_SCRIPTED_HOST_H
#define AIPLC_SCRIPTED_HOST_H

#include <aiplc/adapter.h>
#include <aiplc/aiplc.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

using Samples = std::vector<int16_t>;

// A host for tests: owns channel, record, packet area and output area, without any codec.
class ScriptedHost {
  public:
    explicit ScriptedHost(bool is48K)
        : m_frameSamples(is48K ? 960 : 320), m_area(16 * 960 * sizeof(int16_t)) {
        AiPlcCreate(&m_channel, m_block.get());
        AiPlcAsyncInit(m_channel, 0);
        m_channel->is48K = is48K ? 1 : 0;
        m_channel->frameSamples = m_frameSamples;
        context.stats = &stats;
        context.channel = m_channel;
        context.decodeLost = DecodeLost;
        stats.sampleRate = is48K ? 48000 : 16000;
        AiPlcHostStream &s = Stream();
        s.outBase = s.outRead = s.outWrite = m_area.data();
        s.outEnd = m_area.data() + m_area.size();
    }
    ~ScriptedHost() {
        m_channel->adapter = nullptr;
        AiPlcAsyncDestroy(m_channel);
    }
    ScriptedHost(const ScriptedHost &) = delete;
    ScriptedHost &operator=(const ScriptedHost &) = delete;

    AiPlcHostStream &Stream() { return context.streams[0]; }
    StAiPlcChannel &Channel() { return *m_channel; }
    const AiPlcPkt &Played() const { return *m_channel->outputRing->head; }

    // Appends one packet record to the words of a call.
    static void AddRecord(std::vector<uint16_t> &words, uint16_t number, const Samples &pcm,
                          uint32_t bandwidth = 1105) {
        words.push_back(static_cast<uint16_t>(4 + pcm.size()));
        words.push_back(number);
        words.push_back(static_cast<uint16_t>(bandwidth));
        words.push_back(static_cast<uint16_t>(bandwidth >> 16));
        words.insert(words.end(), pcm.begin(), pcm.end());
    }

    // One call with the given packet area (a heap block of its own, so that a stray read is seen).
    int32_t Apply(const std::vector<uint16_t> &words, int32_t packetCount) {
        const auto area = std::make_unique<uint16_t[]>(words.size());
        std::copy(words.begin(), words.end(), area.get());
        const size_t inBytes = static_cast<size_t>(std::clamp(packetCount, 1, 8)) *
                               m_frameSamples * sizeof(int16_t);
        std::vector<uint8_t> in(inBytes);
        AiPlcHostStream &s = Stream();
        s.inReadPos = in.data();
        s.inEndPos = in.data() + in.size();
        s.inAvailable = static_cast<uint16_t>(m_frameSamples);
        s.pktCursor = area.get();
        s.pktWordsLeft = static_cast<uint16_t>(words.size());
        context.packetCount = packetCount;
        return Run();
    }
    int32_t Receive(const std::vector<std::pair<int, Samples>> &frames) {
        std::vector<uint16_t> words;
        for (const auto &[number, pcm] : frames)
            AddRecord(words, static_cast<uint16_t>(number), pcm);
        return Apply(words, static_cast<int32_t>(frames.size()));
    }
    int32_t Lose() {
        Stream().inAvailable = 0;
        return Run();
    }

    // Takes what the last call appended.
    Samples Take() {
        AiPlcHostStream &s = Stream();
        Samples out(s.outPending);
        if (!out.empty()) std::memcpy(out.data(), s.outRead, out.size() * sizeof(int16_t));
        s.outRead = s.outWrite = s.outBase;
        s.outPending = 0;
        return out;
    }

    AiPlcHostContext context{};
    AiPlcHostStats stats{};
    std::function<int32_t(AiPlcDecodeRequest &)> conceal = [this](AiPlcDecodeRequest &request) {
        std::fill_n(request.pcmOut, m_frameSamples, int16_t{0});
        request.pcmOutSamples = static_cast<uint16_t>(m_frameSamples);
        return 0;
    };

  private:
    int32_t Run() {
        current = this;
        return AiPlcApply(&context, 7, 0);
    }
    static int32_t DecodeLost(uint32_t userArg, AiPlcDecodeRequest *request) {
        return userArg == 7 ? current->conceal(*request) : -1;
    }

    inline static ScriptedHost *current = nullptr;
    std::unique_ptr<uint8_t[]> m_block = std::make_unique<uint8_t[]>(AIPLC_CHANNEL_BYTES);
    StAiPlcChannel *m_channel = nullptr;
    uint32_t m_frameSamples;
    std::vector<uint8_t> m_area;
};

#endif
