// SPDX-License-Identifier: BSD-2-Clause
//
// Decision and request together, over an adapter that answers as told.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "tests/support/ready_adapter.h"
#include "tests/support/scripted_platform.h"

namespace {

using Samples = std::vector<int16_t>;

constexpr size_t kBand = AIPLC_BAND_SAMPLES;

// Predicts 257 * (16 + slot) all through each slot.
struct FakeWorker : ReadyAdapter {
    int Process(InoutDetail &record, int timeoutMs) override {
        EXPECT_EQ(timeoutMs, 16);
        EXPECT_EQ(record.inferArg, 1);
        std::memcpy(input, record.AudioIn, sizeof input);
        for (size_t slot = 0; slot < 8; ++slot)
            std::memset(&record.AudioOut[640 * slot], static_cast<int>(16 + slot), 640);
        if (result == kThrows) throw std::runtime_error("adapter");
        return result;
    }

    static constexpr int kThrows = 99;
    int result = 0;
    int16_t input[8][kBand] = {};
};

const std::string kUnit = "AiplcAsyncProcess: ";
const std::string kTypes = " deiLm c";  // decoded, extrapolated, interpolated, lost, mute, codec

struct Decision : ScriptedTest {
    Decision() {
        EXPECT_EQ(AiPlcAsyncInit(&channel, 0), 0);
        channel.adapter = &worker;
        for (int k = 0; k < 12; ++k)
            behind[k] = k == 0 ? channel.historyRing->head : behind[k - 1]->prev;
        TakeLog();
    }
    ~Decision() override { AiPlcAsyncDestroy(&channel); }

    // The types of the last five frames. Band b of the frame behind[k] holds 100 * b + k + 1.
    void SetHistory(const char *types, int32_t holdOff = 0) {
        for (int k = 0; k < 12; ++k) {
            AiPlcPkt &node = *behind[k];
            node.inferMode = 0;
            node.hasNextPredict = 9;
            node.inferFailed = 9;
            for (int band = 0; band < 3; ++band)
                std::fill_n(node.bands[band], kBand, static_cast<int16_t>(100 * band + k + 1));
            if (k < 5) node.pktType = static_cast<AiPlcPktType>(kTypes.find(types[4 - k]));
        }
        channel.inferHoldOff = holdOff;
        channel.inferStart = nullptr;
        channel.inferFailed = 1;
        channel.nextPredict[319] = 0;
        std::memset(worker.input, 0, sizeof worker.input);
    }

    std::string History() {
        std::string types;
        for (int k = 0; k < 5; ++k)
            types += kTypes[behind[4 - k]->pktType];
        return types;
    }

    StAiPlcChannel channel{};
    AiPlcPkt *behind[12] = {};  // the history, newest first
    FakeWorker worker;
};

TEST_F(Decision, ClassifiesEveryCombinationOfTypes) {
    const std::map<std::string, int> modes = {{"Lddd", 7}, {"LddL", 7}, {"LdLd", 8}, {"LdLL", 8},
                                              {"LLdd", 3}, {"LLdL", 4}, {"LLLd", 5}, {"LLLL", 5}};
    for (unsigned code = 0; code < 256; ++code) {
        const std::string types = {"Ldim"[code & 3], "Ldim"[code >> 2 & 3], "Ldim"[code >> 4 & 3],
                                   "Ldim"[code >> 6]};
        SetHistory(("e" + types).c_str(), 2);
        const int expected = modes.count(types) != 0 ? modes.at(types) : 0;
        EXPECT_EQ(AiPlcGetInferMode(&channel), expected) << types;
        EXPECT_EQ(behind[3]->inferMode, expected) << types;
        EXPECT_EQ(worker.input[7][0], 0) << "nothing is asked";
    }
}

// The window is sent oldest frame first; in a burst the newest prediction is set aside. The upper
// bands of the frame after a shorter gap have faded in by then and its low band begins with zeros.
TEST_F(Decision, KeepsHoldOffAndTypesOfEachPathAndWritesTheWindowBack) {
    const struct {
        const char *before;  // types of the last five frames, oldest first, in letters of kTypes
        int32_t holdOff;
        int mode;
        const char *after;
        int32_t holdOffAfter;
        int windowEnd;  // frames behind the newest
        bool asks;
    } cases[] = {
        {"ddddd", 3, 0, "ddddd", 2, -1, false}, {"edLLL", 0, 0, "edLLL", 0, -1, false},
        {"dLddd", 2, 7, "dcddd", 1, 1, false},  {"eLddL", 1, 7, "ecddL", 0, 1, false},
        {"eLddd", 0, 1, "eiddd", 0, 1, true},   {"dLdLL", 0, 8, "dcdLL", 0, 2, false},
        {"mLdLd", 0, 2, "midLd", 0, 2, true},   {"LLdLd", -1, 2, "LidLd", -1, 2, true},
        {"dLLdd", 4, 3, "diidd", 0, 0, true},   {"cLLdL", 6, 4, "ciidL", 0, 1, true},
        {"dLLLL", 0, 5, "deeLL", 0, 1, true},   {"dLLLd", 3, 5, "dccLd", 5, 1, false},
    };
    channel.is48K = 1;
    for (const auto &each : cases) {
        SCOPED_TRACE(each.before + std::to_string(each.holdOff));
        SetHistory(each.before, each.holdOff);
        EXPECT_EQ(AiPlcAsyncInferJudge(&channel), each.mode);
        EXPECT_EQ(History(), each.after);
        EXPECT_EQ(channel.inferHoldOff, each.holdOffAfter);
        EXPECT_EQ(channel.inferStart, each.windowEnd < 0 ? nullptr : behind[each.windowEnd]);
        EXPECT_EQ(behind[3]->inferMode, each.mode);
        EXPECT_EQ(behind[2]->inferMode, each.mode >= 3 && each.mode <= 5 ? each.mode : 0);
        EXPECT_EQ(worker.input[0][0] != 0, each.asks);
        EXPECT_EQ(channel.inferFailed, each.asks ? 0 : 1);
        EXPECT_EQ(behind[3]->inferFailed, each.asks ? 0 : 9);
        const bool isBurst = each.asks && each.mode == 5;
        EXPECT_EQ(channel.nextPredict[319], isBurst ? 257 * 23 : 0);
        for (int k = 0; k < 12; ++k) {
            const int slot = each.windowEnd + 7 - k;
            const bool isSent = each.asks && slot >= 0 && slot < 8;
            const bool isKept = !isSent || (isBurst && slot == 7);
            const bool isFaded = each.asks && !isBurst && k == (each.mode < 3 ? 2 : 1);
            const AiPlcPkt &node = *behind[k];
            EXPECT_EQ(node.bands[0][319], isKept ? k + 1 : 257 * (16 + slot)) << k;
            EXPECT_EQ(node.bands[1][0], isFaded ? 0 : 101 + k) << k;
            EXPECT_EQ(node.bands[2][319], isFaded ? 200 + k : 201 + k) << k;
            EXPECT_EQ(node.hasNextPredict, !isSent ? 9 : isBurst && slot == 6 ? 1 : 0) << k;
            if (!isSent) continue;
            EXPECT_EQ(worker.input[slot][15], isFaded ? 0 : k + 1) << k;
            EXPECT_EQ(worker.input[slot][16], k + 1) << k;
        }
    }
}

TEST_F(Decision, LeavesTheGapToTheCodecWhenTheRequestFails) {
    const struct {
        int adapter;
        int result;
        const char *before, *after;
        const char *line;
    } cases[] = {
        {101, -16, "eLdLL", "ecdLL", "Worker process timeout: ret = 101\n"},
        {310, -17, "dLLLL", "dccLL", "Last inference has not finished: ret = 310\n"},
        {7, -6, "dLLdL", "dccdL", "Aiplc async process failed: ret = 7\n"},
        {FakeWorker::kThrows, -6, "dLLdd", "dccdd", "Aiplc async process failed: ret = -1\n"},
    };
    channel.is48K = 2;  // any value but 1 means 16 kHz
    for (const auto &each : cases) {
        worker.result = each.adapter;
        int16_t audio[AIPLC_WINDOW_SAMPLES] = {};
        EXPECT_EQ(AiPlcAsyncInfer(&channel, audio, audio, 1), each.result);
        EXPECT_EQ(TakeLog(), kUnit + each.line);
        SetHistory(each.before);
        scripted = {};
        scripted.answers = {{{"PerformanceCounter", 1}, 7000}, {{"PerformanceCounter", 2}, 33000}};
        AiPlcAsyncInferJudge(&channel);
        EXPECT_EQ(History(), each.after);
        EXPECT_THAT(log, testing::StartsWith(kUnit + each.line));
        EXPECT_THAT(TakeLog(), testing::EndsWith("Reset aiplc pkt type to OPUSPLC_PREDICT\n"));
        EXPECT_EQ(channel.inferHoldOff, 6);
        EXPECT_EQ(behind[3]->inferFailed, 1);
        EXPECT_FLOAT_EQ(behind[3]->inferTimeMs, 26.0F);
        EXPECT_EQ(behind[4]->bands[0][0], 5);
        EXPECT_EQ(behind[2]->bands[1][0], 103) << "no fade at 16 kHz";
    }
}

TEST_F(Decision, ACopyThatFailsIsLoggedAndEndsNoRequest) {
    scripted.answers = {{{"CopyBounded 5120", 1}, 22}, {{"CopyBounded 5120", 4}, 34}};
    Samples in(AIPLC_WINDOW_SAMPLES, 5), out(AIPLC_WINDOW_SAMPLES, 6);
    EXPECT_EQ(AiPlcAsyncInfer(&channel, in.data(), out.data(), 1), 0);
    EXPECT_EQ(TakeLog(), kUnit + "memcpy_s AudioIn failed: err = 22\n");
    EXPECT_EQ(worker.input[0][0], 0);
    EXPECT_EQ(out[0], 257 * 16);
    EXPECT_EQ(AiPlcAsyncInfer(&channel, in.data(), out.data(), 1), 0);
    EXPECT_EQ(TakeLog(), kUnit + "memcpy_s AudioOut failed: err = 34\n");
    EXPECT_EQ(worker.input[0][0], 5);
    EXPECT_EQ(out[0], 0) << "by the copy that failed";
    for (int missing = 0; missing < 3; ++missing)
        EXPECT_EQ(
            AiPlcAsyncInfer(missing == 0 ? nullptr : &channel, missing == 1 ? nullptr : in.data(),
                            missing == 2 ? nullptr : out.data(), 1),
            -6);
}

TEST_F(Decision, WorksWithoutAnAdapterAndWithoutAHistory) {
    channel.adapter = nullptr;
    SetHistory("dLLdd");
    EXPECT_EQ(AiPlcAsyncInferJudge(&channel), 3);
    EXPECT_EQ(History(), "dccdd");
    EXPECT_EQ(behind[3]->inferFailed, 1) << "as of the request before";
    AiPlcPkt *const link = std::exchange(behind[2]->prev, nullptr);
    EXPECT_EQ(AiPlcAsyncInferJudge(&channel), 0) << "a broken chain is no history";
    AiPlcGetInferResult(&channel, 3);
    behind[2]->prev = link;
    EXPECT_EQ(AiPlcGetInferMode(nullptr), 0);
}

TEST_F(Decision, ClockNeitherOverflowsNorDividesByZero) {
    scripted.answers[{"PerformanceCounter", 0}] = 10'000'000'000'007;
    scripted.answers[{"PerformanceFrequency", 0}] = 10'000'000;
    EXPECT_EQ(AiPlcGetTimeUs(), 1'000'000'000'000U);
    scripted.answers[{"PerformanceFrequency", 0}] = 0;
    EXPECT_EQ(AiPlcGetTimeUs(), 0U);
}

}  // namespace
