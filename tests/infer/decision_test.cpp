// SPDX-License-Identifier: BSD-2-Clause
//
// Decision and request together, over an adapter that answers as told.

#include <aiplc/adapter.h>
#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <map>

#include "log_lines.h"
#include "scripted_platform.h"

namespace {

using testing::ElementsAre;

constexpr int kFrames = AIPLC_WINDOW_FRAMES;
using Window = std::array<int16_t, AIPLC_WINDOW_SAMPLES>;
constexpr int kBand = AIPLC_BAND_SAMPLES;

// Predicts 1000 + slot all through each slot.
class FakeWorker : public AiplcAdapterInterface {
  public:
    int Create() override { return 0; }
    int Init() override { return 0; }
    int Delete() override { return 0; }
    int Process(InoutDetail &record, int timeoutMs) override {
        ++requests;
        EXPECT_EQ(timeoutMs, 16);
        EXPECT_EQ(record.inferArg, 1);
        std::memcpy(input.data(), record.AudioIn, sizeof record.AudioIn);
        Window output{};
        for (int i = 0; i < kFrames * kBand; ++i) {
            output[static_cast<size_t>(i)] = static_cast<int16_t>(1000 + i / kBand);
        }
        std::memcpy(record.AudioOut, output.data(), sizeof record.AudioOut);
        return result;
    }

    int result = 0;
    int requests = 0;
    Window input{};
};

const std::map<char, AiPlcPktType> kTypes = {{'d', OPUS_DECODED},      {'L', PKT_LOST},
                                             {'i', AIPLC_INTERPOLATE}, {'e', AIPLC_EXTRAPOLATE},
                                             {'m', PKT_MUTE},          {'c', OPUSPLC_PREDICT}};

class Decision : public testing::Test {
  protected:
    Decision() {
        scripted = {};
        CaptureLog();
        EXPECT_EQ(AiPlcAsyncInit(&m_channel, 0), 0);
        m_channel.adapter = &m_worker;
        TakeLog();
    }
    ~Decision() override {
        AiPlcAsyncDestroy(&m_channel);
        AiplcRegLog(nullptr);
    }

    // The history's frame this many steps behind the newest.
    AiPlcPkt &Behind(int steps) {
        AiPlcPkt *node = m_channel.historyRing->head;
        for (; steps > 0; --steps)
            node = node->prev;
        return *node;
    }

    // Previous frame, J0, J1, J2, J3. Band b of the frame k behind the newest holds 100 * b + k
    // + 1.
    void SetHistory(const std::string &types, int32_t holdOff = 0) {
        for (int k = 0; k < 12; ++k) {
            AiPlcPkt &node = Behind(k);
            node.inferMode = 0;
            node.hasNextPredict = 9;
            for (int i = 0; i < 3 * kBand; ++i) {
                node.bands[i / kBand][i % kBand] = static_cast<int16_t>(100 * (i / kBand) + k + 1);
            }
        }
        for (size_t i = 0; i < 5; ++i)
            Behind(static_cast<int>(4 - i)).pktType = kTypes.at(types[i]);
        m_channel.inferHoldOff = holdOff;
    }

    std::string History() {
        std::string types;
        for (int k = 4; k >= 0; --k) {
            for (const auto &[letter, type] : kTypes) {
                if (Behind(k).pktType == type) types += letter;
            }
        }
        return types;
    }

    StAiPlcChannel m_channel{};
    FakeWorker m_worker;
};

TEST_F(Decision, ClassifiesEveryCombinationOfTypes) {
    const std::map<std::string, int> modes = {{"Lddd", 1}, {"LddL", 1}, {"LdLd", 2}, {"LdLL", 2},
                                              {"LLdd", 3}, {"LLdL", 4}, {"LLLd", 5}, {"LLLL", 5}};
    int matched = 0;
    for (unsigned code = 0; code < 256; ++code) {
        std::string types;
        for (unsigned shift = 0; shift < 8; shift += 2)
            types += "Ldim"[code >> shift & 3];
        SetHistory("e" + types, 2);
        const auto row = modes.find(types);
        const bool single = row != modes.end() && row->second <= 2;
        const int expected = row == modes.end() ? 0 : row->second + (single ? 6 : 0);
        EXPECT_EQ(AiPlcGetInferMode(&m_channel), expected) << types;
        EXPECT_EQ(Behind(3).inferMode, expected) << types;
        matched += expected != 0;
    }
    EXPECT_EQ(matched, 8);
    EXPECT_EQ(m_worker.requests, 0);
}

TEST_F(Decision, KeepsTheHoldOffAndTypesOfEachPath) {
    const struct {
        const char *before;
        int32_t holdOff;
        int mode;
        const char *after;
        int32_t holdOffAfter;
        int requests;
        int windowEnd;  // frames behind the newest
    } cases[] = {
        {"ddddd", 3, 0, "ddddd", 2, 0, -1}, {"edLLL", 0, 0, "edLLL", 0, 0, -1},
        {"dLddd", 2, 7, "dcddd", 1, 0, 1},  {"eLddL", 1, 7, "ecddL", 0, 0, 1},
        {"eLddd", 0, 1, "eiddd", 0, 1, 1},  {"dLdLL", 0, 8, "dcdLL", 0, 0, 2},
        {"mLdLd", 0, 2, "midLd", 0, 1, 2},  {"LLdLd", -1, 2, "LidLd", -1, 1, 2},
        {"dLLdd", 4, 3, "diidd", 0, 1, 0},  {"cLLdL", 6, 4, "ciidL", 0, 1, 1},
        {"dLLLL", 0, 5, "deeLL", 0, 1, 1},  {"dLLLd", 3, 5, "dccLd", 5, 0, 1},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.before + std::to_string(each.holdOff));
        SetHistory(each.before, each.holdOff);
        m_channel.inferStart = nullptr;
        m_worker.requests = 0;
        EXPECT_EQ(AiPlcAsyncInferJudge(&m_channel), each.mode);
        EXPECT_EQ(History(), each.after);
        EXPECT_EQ(m_channel.inferHoldOff, each.holdOffAfter);
        EXPECT_EQ(m_worker.requests, each.requests);
        EXPECT_EQ(m_channel.inferStart, each.windowEnd < 0 ? nullptr : &Behind(each.windowEnd));
        EXPECT_EQ(Behind(3).inferMode, each.mode);
        EXPECT_EQ(Behind(2).inferMode, each.mode >= 3 && each.mode <= 5 ? each.mode : 0);
    }
}

TEST_F(Decision, SendsTheWindowOldestFirstAndWritesThePredictionBack) {
    const struct {
        const char *types;
        int windowEnd;
    } cases[] = {{"eLddd", 1}, {"eLdLd", 2}, {"dLLdd", 0}, {"dLLdL", 1}, {"dLLLL", 1}};
    for (const auto &each : cases) {
        SCOPED_TRACE(each.types);
        SetHistory(each.types);
        const bool burst = AiPlcAsyncInferJudge(&m_channel) == AIPLC_INFER_BURST;
        for (int slot = 0; slot < kFrames; ++slot) {
            const int behind = each.windowEnd + 7 - slot;
            AiPlcPkt &node = Behind(behind);
            const bool setAside = burst && slot == 7;
            EXPECT_EQ(m_worker.input[static_cast<size_t>(slot * kBand)], behind + 1);
            EXPECT_EQ(m_worker.input[static_cast<size_t>(slot * kBand + 319)], behind + 1);
            EXPECT_EQ(node.bands[0][319], setAside ? behind + 1 : 1000 + slot);
            EXPECT_EQ(node.bands[1][0], 100 + behind + 1);
            EXPECT_EQ(node.hasNextPredict, burst && slot == 6 ? 1 : 0);
        }
        EXPECT_EQ(Behind(each.windowEnd + 8).bands[0][0], each.windowEnd + 9);
        EXPECT_EQ(m_channel.nextPredict[319], burst ? 1007 : 0);
    }
}

// A fade-in of 10000 over 320 samples: 10000 * (k + 0.5) / 320, truncated.
TEST_F(Decision, FadesUpperBandsInBeforeTheWindowIsRead) {
    const struct {
        const char *types;
        int faded;  // frames behind the newest, -1 none
        size_t slot;
    } cases[] = {
        {"eLddd", 2, 6}, {"eLdLd", 2, 7}, {"dLLdd", 1, 6}, {"dLLdL", 1, 7}, {"dLLLL", -1, 0}};
    m_channel.is48K = 1;
    for (const auto &each : cases) {
        SCOPED_TRACE(each.types);
        SetHistory(each.types);
        for (int k = 0; k < 12; ++k)
            std::fill_n(Behind(k).bands[0], 3 * kBand, int16_t{10000});
        AiPlcAsyncInferJudge(&m_channel);
        for (int k = 0; k < 4; ++k) {
            const int16_t first = k == each.faded ? 15 : 10000;
            const int16_t last = k == each.faded ? 9984 : 10000;
            EXPECT_EQ(Behind(k).bands[1][0], first) << k;
            EXPECT_EQ(Behind(k).bands[2][319], last) << k;
        }
        const auto zeros = std::count(m_worker.input.begin(), m_worker.input.end(), 0);
        EXPECT_EQ(zeros, each.faded < 0 ? 0 : 16);
        if (zeros != 0) {
            EXPECT_EQ(m_worker.input[each.slot * kBand + 15], 0);
            EXPECT_EQ(m_worker.input[each.slot * kBand + 16], 10000);
        }
    }
}

TEST_F(Decision, LeavesTheGapToTheCodecWhenTheRequestFails) {
    const struct {
        int adapter;
        int result;
        const char *line;
    } cases[] = {
        {101, -16, "AiplcAsyncProcess: Worker process timeout: ret = 101"},
        {310, -17, "AiplcAsyncProcess: Last inference has not finished: ret = 310"},
        {7, -6, "AiplcAsyncProcess: Aiplc async process failed: ret = 7"},
        {-1, -6, "AiplcAsyncProcess: Aiplc async process failed: ret = -1"},
    };
    scripted.frequency = 10'000'000;
    for (const auto &each : cases) {
        m_worker.result = each.adapter;
        const Window in{};
        Window out{};
        EXPECT_EQ(AiPlcAsyncInfer(&m_channel, in.data(), out.data(), 1), each.result);
        EXPECT_THAT(TakeLog(), ElementsAre(each.line));
        for (const bool single : {false, true}) {
            SetHistory(single ? "eLdLL" : "dLLLL");
            scripted.counter = {70'000, 330'000};  // 26 ms
            EXPECT_EQ(AiPlcAsyncInferJudge(&m_channel), single ? 2 : 5);
            EXPECT_EQ(History(), single ? "ecdLL" : "dccLL");
            EXPECT_THAT(TakeLog(), ElementsAre(each.line,
                                               "AiplcAsyncProcess: Reset aiplc pkt type "
                                               "to OPUSPLC_PREDICT"));
            EXPECT_EQ(m_channel.inferHoldOff, 6);
            EXPECT_EQ(Behind(3).inferFailed, 1);
            EXPECT_FLOAT_EQ(Behind(3).inferTimeMs, 26.0F);
            EXPECT_EQ(Behind(4).bands[0][0], 5);
            EXPECT_EQ(m_channel.nextPredict[0], 0);
        }
    }
}

TEST_F(Decision, WorksWithoutAnAdapterAndWithoutAHistory) {
    m_channel.adapter = nullptr;
    m_channel.inferTimeMs = 3.5F;
    SetHistory("dLLdd");
    EXPECT_EQ(AiPlcAsyncInferJudge(&m_channel), 3);
    EXPECT_EQ(History(), "dccdd");
    EXPECT_FLOAT_EQ(Behind(3).inferTimeMs, 3.5F);
    EXPECT_EQ(Behind(3).inferFailed, 0);
    EXPECT_THAT(TakeLog(),
                ElementsAre("AiplcAsyncProcess: Reset aiplc pkt type to OPUSPLC_PREDICT"));

    AiPlcPkt *const head = std::exchange(m_channel.historyRing->head, nullptr);
    int32_t mode = -5;
    AiPlcHandleInferMode3(&m_channel, &mode);
    AiPlcHandleInferMode1(nullptr, &mode);
    EXPECT_EQ(mode, -5);
    EXPECT_EQ(AiPlcAsyncInferJudge(&m_channel), 0);
    EXPECT_EQ(AiPlcGetInferMode(nullptr), 0);
    AiPlcPktType *noTypes[4] = {};
    EXPECT_EQ(AiPlcGetInferModeHandler(noTypes), nullptr);
    EXPECT_EQ(AiPlcGetInferModeHandler(nullptr), nullptr);
    m_channel.historyRing->head = head;

    AiPlcPkt *const link = std::exchange(Behind(2).prev, nullptr);
    EXPECT_EQ(AiPlcAsyncInferJudge(&m_channel), 0) << "a broken chain is no history";
    m_channel.inferStart = head;
    m_channel.judgeNodes[0] = nullptr;
    AiPlcGetInferResult(&m_channel, 3);
    Behind(2).prev = link;
    EXPECT_EQ(m_channel.inferHoldOff, 6);
}

TEST_F(Decision, ClockSplitsTheDivision) {
    scripted.counter = {10'000'000'000'000};
    scripted.frequency = 10'000'000;
    EXPECT_EQ(AiPlcGetTimeUs(), 1'000'000'000'000U);
    scripted.counter = {7};
    scripted.frequency = 3;
    EXPECT_EQ(AiPlcGetTimeUs(), 2'333'333U);
    scripted.frequency = 0;
    EXPECT_EQ(AiPlcGetTimeUs(), 0U);
}

}  // namespace
