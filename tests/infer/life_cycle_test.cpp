// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/adapter.h>
#include <gmock/gmock.h>

#include "log_lines.h"
#include "scripted_platform.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Answers = std::deque<uint32_t>;

class LifeCycle : public testing::Test {
  protected:
    LifeCycle() {
        scripted = {};
        CaptureLog();
        m_channel.is48K = 1;
        m_channel.inferHoldOff = 4;
    }
    ~LifeCycle() override {
        EXPECT_EQ(AiPlcAsyncDestroy(&m_channel), 0);
        AiplcRegLog(nullptr);
    }

    // This unit's lines only.
    static std::vector<std::string> OwnLog() {
        std::vector<std::string> own = TakeLog();
        std::erase_if(
            own, [](const std::string &line) { return line.rfind("AiplcAsyncProcess: ", 0) != 0; });
        for (std::string &line : own)
            line.erase(0, 19);
        return own;
    }

    StAiPlcChannel m_channel{};
};

TEST_F(LifeCycle, WithoutTheWorkerBuildsRingsOnly) {
    for (const int16_t enable : {int16_t{0}, int16_t{2}}) {
        scripted.counter = {1000, 3500};
        EXPECT_EQ(AiPlcAsyncInit(&m_channel, enable), 0);
        EXPECT_THAT(TakeLog(), ElementsAre("AiplcAsyncProcess: From Init: sEnableAIPLC = " +
                                           std::to_string(enable)));
        EXPECT_EQ(m_channel.sEnableAIPLC, enable);
        EXPECT_EQ(m_channel.frameMs, 20U);
        EXPECT_EQ(m_channel.frameSamples, 960U);
        EXPECT_EQ(m_channel.bufferTarget, 3);
        EXPECT_EQ(m_channel.is48K, 0U);
        EXPECT_EQ(m_channel.inferHoldOff, 0);
        EXPECT_FLOAT_EQ(m_channel.initTimeMs, 2.5F);
        EXPECT_EQ(m_channel.inputRing->count, 12);
        EXPECT_EQ(m_channel.historyRing->count, 12);
        EXPECT_EQ(m_channel.opusRing->count, 8);
        EXPECT_THAT(scripted.calls, IsEmpty());
        EXPECT_EQ(AiPlcAsyncDestroy(&m_channel), 0);
        EXPECT_EQ(m_channel.opusRing, nullptr);
        EXPECT_EQ(AiPlcAsyncDestroy(&m_channel), 0);
        EXPECT_THAT(TakeLog(), IsEmpty());
    }
    EXPECT_EQ(AiPlcAsyncInit(nullptr, 1), -1);
    EXPECT_EQ(AiPlcInitRingLists(nullptr), -1);
    EXPECT_EQ(AiPlcAsyncDestroy(nullptr), -1);
}

TEST_F(LifeCycle, StartsAndStopsTheWorker) {
    scripted.processIds = {0, 4711};
    EXPECT_EQ(AiPlcAsyncInit(&m_channel, 1), 0);
    ASSERT_NE(m_channel.adapter, nullptr);
    EXPECT_THAT(OwnLog(),
                ElementsAre("Initiating worker process...", "From Init: sEnableAIPLC = 1"));
    EXPECT_EQ(AiPlcAsyncDestroy(&m_channel), 0);
    EXPECT_EQ(m_channel.adapter, nullptr);
    EXPECT_EQ(m_channel.sEnableAIPLC, 1);
    EXPECT_THAT(scripted.calls, Contains("Close SharedMem"));
    EXPECT_THAT(OwnLog(), ElementsAre("AIPLC worker process has been terminated!"));

    scripted.processIds = {0, 4711};
    AiPlcAsyncInit(&m_channel, 1);
    static_cast<AiplcAdapter *>(m_channel.adapter)->workerRunning = false;
    OwnLog();
    EXPECT_EQ(AiPlcAsyncDestroy(&m_channel), 0);
    EXPECT_THAT(OwnLog(), ElementsAre("AIPLC worker process termination failed: ret = 201"));
}

TEST_F(LifeCycle, UndoesAFailedStartAndKeepsTheRings) {
    constexpr uint32_t kNoMemory = ScriptedPlatform::kOutOfMemory;
    constexpr char kStart[] = "Start /host/x64/xanu_audio_aiplc.exe";
    constexpr char kProbe[] = "Wait AIPLC_ADAPTER_RECEIVER 200";
    constexpr char kInit[] = "Wait AIPLC_ADAPTER_RECEIVER 5000";
    const struct {
        const char *call;
        Answers answers;
        int result;
        const char *line;
    } cases[] = {
        {"CreateEvent AIPLC_WORKER_RECEIVER", {kNoMemory}, -4, "new adapter failed"},
        {"CreateEvent AIPLC_INPUT_READY", {0}, -14, "create adapter failed: ret = 204"},
        {kStart, {kNoMemory}, -14, "create adapter failed: ret = -1"},
        {kProbe, Answers(10, 258), -15, "init adapter failed: ret =201"},
        {kInit, {258}, -15, "init adapter failed: ret =-1"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.call);
        scripted = {};
        scripted.answers[each.call] = each.answers;
        scripted.processIds = {0, 4711};
        EXPECT_EQ(AiPlcAsyncInit(&m_channel, 1), each.result);
        EXPECT_EQ(Logged("aiplcAdapter: AIPLC::Delete running..."), each.result == -4 ? 0 : 1);
        EXPECT_THAT(OwnLog(), ElementsAre("Initiating worker process...", each.line));
        EXPECT_EQ(m_channel.sEnableAIPLC, 0);
        EXPECT_EQ(m_channel.adapter, nullptr);
        EXPECT_EQ(m_channel.initTimeMs, 0.0F);
        EXPECT_THAT(scripted.calls, Contains("Close SharedMem"));
        ASSERT_NE(m_channel.opusRing, nullptr);
        EXPECT_EQ(AiPlcAsyncDestroy(&m_channel), 0);
        EXPECT_THAT(TakeLog(), IsEmpty());
    }
}

TEST_F(LifeCycle, FreesTheRingsMadeBeforeOneThatFails) {
    Answers answers(30, 0);  // 8 + 8 + 12 nodes, then the third of the history ring
    answers.push_back(34);
    scripted.answers["CopyBounded 1920"] = answers;
    EXPECT_EQ(AiPlcAsyncInit(&m_channel, 1), -8);
    EXPECT_EQ(m_channel.outputRing, nullptr);
    EXPECT_EQ(m_channel.inputRing, nullptr);
    EXPECT_EQ(m_channel.historyRing, nullptr);
    EXPECT_EQ(m_channel.sEnableAIPLC, 1);
    EXPECT_THAT(TakeLog(), IsEmpty());
}

}  // namespace
