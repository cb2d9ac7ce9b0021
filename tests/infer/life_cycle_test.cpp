// SPDX-License-Identifier: BSD-2-Clause

#include <gmock/gmock.h>

#include "tests/support/ready_adapter.h"
#include "tests/support/scripted_platform.h"

namespace {

using namespace testing;

const std::string kUnit = "AiplcAsyncProcess: ";

struct LifeCycle : ScriptedTest {
    ~LifeCycle() override { EXPECT_EQ(AiPlcAsyncDestroy(&channel), 0); }
    StAiPlcChannel channel{};
};

TEST_F(LifeCycle, OnlyTheNumberOneStartsTheWorker) {
    channel.is48K = 1;
    channel.inferHoldOff = 4;
    scripted.answers = {{{"PerformanceCounter", 1}, 1000}, {{"PerformanceCounter", 2}, 3500}};
    EXPECT_EQ(AiPlcAsyncInit(&channel, 2), 0);
    EXPECT_EQ(TakeLog(), kUnit + "From Init: sEnableAIPLC = 2\n");
    EXPECT_EQ(channel.is48K, 0U);
    EXPECT_EQ(channel.inferHoldOff, 0);
    EXPECT_FLOAT_EQ(channel.initTimeMs, 2.5F);
    EXPECT_EQ(AiPlcAsyncInit(nullptr, 1), -1);
    EXPECT_EQ(AiPlcInitRingLists(nullptr), -1);
    EXPECT_EQ(AiPlcAsyncDestroy(nullptr), -1);
}

TEST_F(LifeCycle, StopsTheWorkerItStarted) {
    for (const bool isRunning : {true, false}) {
        scripted = {};
        EXPECT_EQ(AiPlcAsyncInit(&channel, 1), 0);
        EXPECT_THAT(TakeLog(), EndsWith(kUnit + "From Init: sEnableAIPLC = 1\n"));
        static_cast<AiplcAdapter *>(channel.adapter)->workerRunning = isRunning;
        EXPECT_EQ(AiPlcAsyncDestroy(&channel), 0);
        EXPECT_EQ(channel.adapter, nullptr);
        EXPECT_EQ(scripted.Held(), isRunning ? 0 : 1) << "only Delete closes the mutex";
        const char *outcome = isRunning ? "has been terminated!" : "termination failed: ret = 201";
        EXPECT_THAT(TakeLog(), HasSubstr(kUnit + "AIPLC worker process " + outcome));
    }
}

TEST_F(LifeCycle, UndoesAFailedStartAndKeepsTheRings) {
    const struct {
        const char *call;
        int64_t answer;
        int nth;  // 0 all
        int result;
        const char *line;
    } cases[] = {
        {"CreateEvent AIPLC_WORKER_RECEIVER", kOutOfMemory, 1, -4, "new adapter failed"},
        {"CreateEvent AIPLC_INPUT_READY", 0, 1, -14, "create adapter failed: ret = 204"},
        {"CreateMutex AiplcInferMutex", kOutOfMemory, 1, -15, "init adapter failed: ret =-1"},
        {"Wait AIPLC_ADAPTER_RECEIVER 200", 258, 0, -15, "init adapter failed: ret =201"},
        {"Wait AIPLC_ADAPTER_RECEIVER 5000", 258, 1, -15, "init adapter failed: ret =-1"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.call);
        scripted = {};
        scripted.answers[{each.call, each.nth}] = each.answer;
        EXPECT_EQ(AiPlcAsyncInit(&channel, 1), each.result);
        EXPECT_THAT(log, StartsWith(kUnit + "Initiating worker process...\n"));
        EXPECT_THAT(TakeLog(), HasSubstr(kUnit + each.line + '\n'));
        EXPECT_EQ(channel.sEnableAIPLC, 0);
        EXPECT_EQ(channel.adapter, nullptr);
        EXPECT_EQ(channel.initTimeMs, 0.0F);
        EXPECT_EQ(scripted.Held(), 0);
        ASSERT_NE(channel.opusRing, nullptr);
        EXPECT_EQ(AiPlcAsyncDestroy(&channel), 0);
    }
}

TEST_F(LifeCycle, AnAdapterThatThrowsAnythingHasFailed) {
    struct Throwing : ReadyAdapter {
        int Delete() override { throw 7; }
        int Process(InoutDetail &, int) override { throw "no exception of the standard"; }
    };
    EXPECT_EQ(AiPlcAsyncInit(&channel, 0), 0);
    channel.adapter = new Throwing;
    channel.sEnableAIPLC = 1;
    int16_t window[AIPLC_WINDOW_SAMPLES] = {};
    EXPECT_EQ(AiPlcAsyncInfer(&channel, window, window, 1), -6);
    EXPECT_EQ(channel.inferFailed, 1);
    EXPECT_EQ(AiPlcAsyncDestroy(&channel), 0);
    EXPECT_THAT(TakeLog(), EndsWith("termination failed: ret = -1\n"));
}

TEST_F(LifeCycle, FreesTheRingsMadeBeforeOneThatFails) {
    scripted.answers[{"CopyBounded 1920", 8 + 8 + 12 + 3}] = 34;  // in the history ring
    EXPECT_EQ(AiPlcAsyncInit(&channel, 1), -8);
    EXPECT_EQ(channel.outputRing, nullptr);
    EXPECT_EQ(channel.sEnableAIPLC, 1);
}

}  // namespace
