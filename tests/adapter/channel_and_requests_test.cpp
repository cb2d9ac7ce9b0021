// SPDX-License-Identifier: BSD-2-Clause
//
// IPC and AiplcAdapter over a platform that fails on demand.

#include <aiplc/adapter.h>
#include <gmock/gmock.h>

#include "log_lines.h"
#include "scripted_platform.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kTimeout = 258;
constexpr uint32_t kAbandoned = 128;
constexpr uint32_t kWaitError = 0xFFFFFFFF;

class ScriptedTest : public testing::Test {
  protected:
    ScriptedTest() {
        scripted = {};
        CaptureLog();
    }
    ~ScriptedTest() override { AiplcRegLog(nullptr); }
};

using Channel = ScriptedTest;

TEST_F(Channel, FailsAtTheThirdEventAndClosesTheFirstTwo) {
    scripted.answers["OpenMapping SharedMem"] = {0};
    scripted.answers["CreateEvent AIPLC_PROCESS_STARTED"] = {0};
    {
        IPC ipc;
        EXPECT_EQ(ipc.Init(), -1);
        EXPECT_FALSE(ipc.initialized);
        EXPECT_EQ(ipc.eventHandles.size(), 3U);
        EXPECT_THAT(TakeLog(),
                    ElementsAre("IPC: memroy-mapped file doesn't exist, creating a new one.\n",
                                "IPC: CreateEvent failed: eventName = AIPLC_PROCESS_STARTED\n"));
        EXPECT_EQ(scripted.calls.back(), "CreateEvent AIPLC_PROCESS_STARTED");
        scripted.calls.clear();
    }
    EXPECT_THAT(
        TakeLog(),
        ElementsAre("IPC: IPC destructor was called!\n", "IPC: Shared mem was released!\n",
                    "IPC: SharedMemHandle was closed!\n", "IPC: IPC destruction was completed!\n"));
    EXPECT_THAT(scripted.calls, testing::UnorderedElementsAre("UnmapView", "Close SharedMem",
                                                              "Close AIPLC_WORKER_RECEIVER",
                                                              "Close AIPLC_ADAPTER_RECEIVER"));
}

TEST_F(Channel, WithoutAUsableBlockItLeavesNothingOpen) {
    const struct {
        std::map<std::string, std::deque<uint32_t>> answers;
        size_t viewBytes;
        std::vector<std::string> log;
    } cases[] = {
        {{{"OpenMapping SharedMem", {0}}, {"CreateMapping SharedMem", {0}}},
         10776,
         {"IPC: memroy-mapped file doesn't exist, creating a new one.\n",
          "IPC: Create shared mem failed!\n"}},
        {{{"MapView", {0}}},
         10776,
         {"IPC: memroy-mapped file exists.\n", "IPC: MapViewOfFile failed: err = 5\n"}},
        {{},
         10775,
         {"IPC: memroy-mapped file exists.\n",
          "IPC: Shared mem is too small: 10775 bytes, 10776 bytes are needed\n"}},
    };
    for (const auto &each : cases) {
        scripted = {};
        scripted.answers = each.answers;
        scripted.viewBytes = each.viewBytes;
        TakeLog();
        AiplcAdapter adapter;
        EXPECT_EQ(adapter.m_ipc.sharedMem, nullptr);
        EXPECT_EQ(adapter.m_ipc.sharedMemHandle, nullptr);
        EXPECT_EQ(adapter.Create(), 204);
        std::vector<std::string> expected = each.log;
        expected.insert(expected.end(),
                        {"aiplcAdapter: IPC init failed!", "aiplcAdapter: adapter IPC failed"});
        EXPECT_EQ(TakeLog(), expected);
    }
}

TEST_F(Channel, TellsWaitOutcomesApart) {
    IPC ipc;
    ASSERT_EQ(ipc.Init(), 0);
    TakeLog();
    void *event = ipc.eventHandles.at("AIPLC_INPUT_READY");
    scripted.answers["Wait AIPLC_INPUT_READY 7"] = {0, kTimeout, kWaitError, kAbandoned, 3};
    for (const int expected : {0, 101, 104, 105, -1}) {
        EXPECT_EQ(ipc.ReceiveEvent(event, 7), expected);
    }
    const size_t calls = scripted.calls.size();
    EXPECT_EQ(ipc.ReceiveEvent(reinterpret_cast<void *>(~uintptr_t{0}), 7), -1);
    EXPECT_EQ(scripted.calls.size(), calls) << "an invalid handle is not waited on";
    EXPECT_THAT(TakeLog(), ElementsAre("IPC: Invalid handle!\n"));
}

using WorkerStart = ScriptedTest;

TEST_F(WorkerStart, ProbesInitialisesAndStops) {
    scripted.processIds = {0, 4711};
    AiplcAdapter adapter;
    TakeLog();
    scripted.calls.clear();
    EXPECT_EQ(adapter.Create(), 0);
    EXPECT_EQ(scripted.block.initParam1, 302U);
    EXPECT_EQ(scripted.block.msgId, 4U);
    EXPECT_EQ(adapter.Init(), 0);
    EXPECT_EQ(scripted.block.msgId, 1U);
    EXPECT_EQ(adapter.Delete(), 0);
    EXPECT_EQ(scripted.block.msgId, 3U);
    EXPECT_EQ(adapter.Delete(), 201);
    EXPECT_EQ(adapter.Init(), 201);
    EXPECT_THAT(
        scripted.calls,
        ElementsAre("Start /host/x64/xanu_audio_aiplc.exe", "SetEvent AIPLC_WORKER_RECEIVER",
                    "Wait AIPLC_ADAPTER_RECEIVER 200", "CreateMutex AiplcInferMutex",
                    "SetEvent AIPLC_WORKER_RECEIVER", "Wait AIPLC_ADAPTER_RECEIVER 5000",
                    "SetEvent AIPLC_WORKER_RECEIVER", "Close AiplcInferMutex"));
    const std::vector<std::string> texts = {
        "TerminatePreviousProcess: Checking former process...",
        "Cannot find process xanu_audio_aiplc.exe",
        "TerminatePreviousProcess OK",
        "Creating worker process: /host/x64/xanu_audio_aiplc.exe",
        "Worker process is ready",
        "Worker process creation succeeded. Process ID = 4711, Process name = "
        "xanu_audio_aiplc.exe",
        "AiplcAdapter::Create OK",
        "AiplcAdapter Init running...",
        "Init Success",
        "AIPLC::Delete running...",
        "AIPLC_ADATER::Delete OK",
        "AIPLC::Delete running...",
        "AiplcAdapter Init running...",
        "Worker process is not running..."};
    std::vector<std::string> expected;
    for (const std::string &text : texts)
        expected.push_back("aiplcAdapter: " + text);
    EXPECT_EQ(TakeLog(), expected);
}

TEST_F(WorkerStart, ReportsEveryFailedStep) {
    const std::string set = "SetEvent AIPLC_WORKER_RECEIVER";
    const std::string prefix = "aiplcAdapter: ";
    const struct {
        std::map<std::string, std::deque<uint32_t>> answers;
        std::deque<uint32_t> processIds;
        int create;
        int init;
        std::string line;
        int times;
    } cases[] = {
        {{{"Wait AIPLC_ADAPTER_RECEIVER 200", std::deque<uint32_t>(10, kTimeout)}},
         {0},
         0,
         201,
         "Waiting for worker process to be ready: 5",
         10},
        {{{set, {0, 0, 1}}},
         {0, 9},
         0,
         0,
         "Set AIPLC_WORKER_RECEIVER event failed (msgId = AIPLC_CHECK_READY) = 5",
         2},
        {{{"Start /host/x64/xanu_audio_aiplc.exe", {0}}},
         {0},
         -1,
         201,
         "CreateProcess Error: 5",
         1},
        {{},
         {0, 0},
         -1,
         201,
         "Worker process creation failed. Process ID = 0, Process name = xanu_audio_aiplc.exe",
         1},
        {{}, {0}, -1, 201, "CreateWorkerProcess() failed: ret = -1", 1},
        {{{set, {0}}}, {8, 0, 9}, 0, 0, "Send msg to worker process failed (AIPLC_DELETE): 5", 1},
        {{{"CreateMutex AiplcInferMutex", {0}}}, {0, 9}, 0, -1, "Create InferMutex failed: 5", 1},
        {{{set, {1, 0}}}, {0, 9}, 0, -1, "Set AIPLC_WORKER_RECEIVER event failed: 5", 1},
        {{{"Wait AIPLC_ADAPTER_RECEIVER 5000", {kTimeout}}},
         {0, 9},
         0,
         -1,
         "Wait for AIPLC_ADAPTER_RECEIVER failed. Init failed",
         1},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.line);
        scripted = {};
        scripted.answers = each.answers;
        scripted.processIds = each.processIds;
        AiplcAdapter adapter;
        EXPECT_EQ(adapter.Create(), each.create);
        EXPECT_EQ(adapter.Init(), each.init);
        EXPECT_EQ(Logged(prefix + each.line), each.times);
        TakeLog();
    }
}

class Request : public ScriptedTest {
  protected:
    void SetUp() override {
        scripted.processIds = {0, 4711};
        ASSERT_EQ(m_adapter.Create(), 0);
        ASSERT_EQ(m_adapter.Init(), 0);
        scripted.calls.clear();
        TakeLog();
    }

    AiplcAdapter m_adapter;
    InoutDetail m_record{};
};

TEST_F(Request, PassesTheMutexRoundAndBringsTheOutputBack) {
    m_record.inferArg = 1;
    m_record.AudioIn[5119] = 77;
    scripted.block.AudioOut[2559] = -2;
    scripted.block.retCode = 7;
    EXPECT_EQ(m_adapter.Process(m_record, 16), 7);
    EXPECT_THAT(scripted.calls,
                ElementsAre("Wait AiplcInferMutex 0", "SetEvent AIPLC_INPUT_READY",
                            "ResetEvent AIPLC_PROCESS_STARTED", "SetEvent AIPLC_WORKER_RECEIVER",
                            "Release AiplcInferMutex", "Wait AIPLC_PROCESS_STARTED 10",
                            "Wait AiplcInferMutex 16", "Release AiplcInferMutex"));
    EXPECT_EQ(scripted.block.msgId, 2U);
    EXPECT_EQ(scripted.block.inferArg, 1U);
    EXPECT_EQ(scripted.block.AudioIn[2559], 77 << 8);
    EXPECT_EQ(m_record.AudioOut[5118], 0xFE);
    EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(Request, EndsEveryFailureWithItsMessageAndTheMutexFree) {
    const struct {
        const char *call;
        std::deque<uint32_t> answers;
        int result;
        std::vector<std::string> log;
    } cases[] = {
        {"Wait AiplcInferMutex 0", {kTimeout}, 310, {"Previous inference has not finished"}},
        {"Wait AiplcInferMutex 0", {kAbandoned}, 310, {"Previous inference has not finished"}},
        {"Wait AiplcInferMutex 0", {kWaitError}, 310, {"Previous inference has not finished"}},
        {"CopyBounded 5120", {34}, -1, {"memcpy_s AudioIn failed: ret = 34"}},
        {"SetEvent AIPLC_INPUT_READY", {0}, -1, {"Send AIPLC_INPUT_READY msg failed: 5"}},
        {"ResetEvent AIPLC_PROCESS_STARTED", {0}, -1, {"Reset AIPLC_PROCESS_STARTED failed: 5"}},
        {"SetEvent AIPLC_WORKER_RECEIVER",
         {0},
         -1,
         {"Setting AIPLC_WORKER_RECEIVER event for async inferencing failed: 5",
          "AsyncInfer failed: ret = -1"}},
        {"Release AiplcInferMutex",
         {0},
         -1,
         {"Release InferMutex failed: 5", "AsyncInfer failed: ret = -1"}},
        {"Wait AIPLC_PROCESS_STARTED 10",
         {kTimeout},
         -1,
         {"Wait for worker's acknowledgement timeout", "AsyncInfer failed: ret = -1"}},
        {"Wait AIPLC_PROCESS_STARTED 10",
         {kWaitError},
         -1,
         {"AIPLC_PROCESS worker process didn't acknowledge: waitResult = -1",
          "AsyncInfer failed: ret = -1"}},
        {"Wait AiplcInferMutex 16",
         {kTimeout},
         -1,
         {"AIPLC_PROCESS worker process timeout, use opus PLC.", "AsyncInfer failed: ret = 101"}},
        {"Wait AiplcInferMutex 16",
         {kAbandoned},
         -1,
         {"AIPLC_PROCESS worker process other wait err: 128", "AsyncInfer failed: ret = -1"}},
        {"CopyBounded 5120",
         {0, 34},
         -1,
         {"memcpy_s AudioOut failed: ret = 34", "AsyncInfer failed: ret = -1"}},
        {"Release AiplcInferMutex",
         {1, 0},
         -1,
         {"Release mutex after audio out failed: 5", "AsyncInfer failed: ret = -1"}},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.log.front());
        scripted.answers = {{each.call, each.answers}};
        scripted.block.msgId = 9;
        EXPECT_EQ(m_adapter.Process(m_record, 16), each.result);
        std::vector<std::string> expected;
        for (const std::string &text : each.log)
            expected.push_back("aiplcAdapter: " + text);
        EXPECT_EQ(TakeLog(), expected);
        EXPECT_EQ(scripted.mutexDepth, 0);
        if (each.result == 310) {
            EXPECT_EQ(scripted.block.msgId, 0U);
        }
    }
}

TEST_F(Request, IsRefusedWithoutBlockOrWorker) {
    void *block = std::exchange(m_adapter.m_ipc.sharedMem, nullptr);
    EXPECT_EQ(m_adapter.Process(m_record, 16), 202);
    m_adapter.m_ipc.sharedMem = block;
    m_adapter.workerRunning = false;
    EXPECT_EQ(m_adapter.Process(m_record, 16), 201);
    EXPECT_THAT(TakeLog(), ElementsAre("aiplcAdapter: Shared mem is NULL!",
                                       "aiplcAdapter: Worker process is not running!"));
    EXPECT_THAT(scripted.calls, IsEmpty());
}

TEST_F(WorkerStart, SaysOnStandardOutputThatProcessesCannotBeListed) {
    AiplcAdapter adapter;
    testing::internal::CaptureStdout();
    EXPECT_EQ(adapter.GetProcessId("any"), 0U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "snapShot null\n");
}

TEST_F(ScriptedTest, ConvertsUtf8BothWaysAndRefusesBrokenText) {
    AiplcAdapter adapter;
    EXPECT_EQ(adapter.Wstring2String(L"\u00E9\U0001D11E"), "\xC3\xA9\xF0\x9D\x84\x9E");
    EXPECT_EQ(adapter.String2Wstring("\xC3\xA9"), L"\u00E9");
    EXPECT_THROW(adapter.String2Wstring("\xC3("), std::range_error);
}

}  // namespace
