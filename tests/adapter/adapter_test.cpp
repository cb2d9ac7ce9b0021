// SPDX-License-Identifier: BSD-2-Clause

#include <gmock/gmock.h>

#include "tests/support/scripted_platform.h"

namespace {

using namespace aiplc::platform;
using namespace testing;

constexpr char kSignal[] = "SetEvent AIPLC_WORKER_RECEIVER";
constexpr char kProbe[] = "Wait AIPLC_ADAPTER_RECEIVER 200";
constexpr char kInit[] = "Wait AIPLC_ADAPTER_RECEIVER 5000";
constexpr char kTake[] = "Wait AiplcInferMutex 0";
constexpr char kTakeBack[] = "Wait AiplcInferMutex 16";
constexpr char kRelease[] = "Release AiplcInferMutex";
constexpr char kStarted[] = "Wait AIPLC_PROCESS_STARTED 10";
constexpr char kCopy[] = "CopyBounded 5120";

using Adapter = ScriptedTest;

TEST_F(Adapter, StartsServesAndStopsInThisOrderAndClosesEverything) {
    {
        AiplcAdapter adapter;
        scripted.calls.clear();
        EXPECT_EQ(adapter.Create(), 0);
        EXPECT_EQ(scripted.Block()->initParam1, 302U);
        EXPECT_EQ(scripted.Block()->msgId, 4U);
        EXPECT_EQ(adapter.Init(), 0);
        record.inferArg = 1;
        record.AudioIn[5119] = 3;
        scripted.Block()->retCode = 7;
        scripted.Block()->AudioOut[2559] = 5 << 8;
        EXPECT_EQ(adapter.Process(record, 16), 7);
        EXPECT_EQ(scripted.Block()->inferArg, 1U);
        EXPECT_EQ(scripted.Block()->AudioIn[2559], 3 << 8);
        EXPECT_EQ(record.AudioOut[5119], 5);
        void *const block = std::exchange(adapter.m_ipc.sharedMem, nullptr);
        EXPECT_EQ(adapter.Init(), 202);
        EXPECT_EQ(adapter.Process(record, 16), 202);
        adapter.m_ipc.sharedMem = block;
        EXPECT_EQ(adapter.Delete(), 0);
        EXPECT_EQ(adapter.Delete(), 201);
    }
    EXPECT_EQ(scripted.Held(), 0);
    EXPECT_THAT(
        scripted.calls,
        ElementsAre("FindProcess", "ExecutablePath", "Start /host/x64/xanu_audio_aiplc.exe",
                    kSignal, kProbe, "FindProcess", "CreateMutex AiplcInferMutex", kSignal, kInit,
                    kTake, kCopy, "SetEvent AIPLC_INPUT_READY", "ResetEvent AIPLC_PROCESS_STARTED",
                    kSignal, kRelease, kStarted, kTakeBack, kCopy, kRelease, kSignal));
}

TEST_F(Adapter, ReportsEachFailureAndLeavesTheMutexFreeAndNothingOpen) {
    const struct {
        const char *call;
        int64_t answer;
        int nth;                    // 0 all
        int create, init, process;  // results
        const char *line;
    } cases[] = {
        {"CreateMapping SharedMem", 0, 1, 204, 201, 201, "Create shared mem failed!\n"},
        {"MapView", 10775, 1, 204, 201, 201,
         "Shared mem is too small: 10775 bytes, 10776 bytes are needed\n"},
        {"CreateEvent AIPLC_PROCESS_STARTED", 0, 1, 204, 201, 201,
         "CreateEvent failed: eventName = AIPLC_PROCESS_STARTED\n"},
        {"Start /host/x64/xanu_audio_aiplc.exe", 0, 1, -1, 201, 201, "CreateProcess Error: 5"},
        {"ExecutablePath", 0, 1, -1, 201, 201, "Creating worker process: "},
        {"FindProcess", 0, 2, -1, 201, 201, "CreateWorkerProcess() failed: ret = -1"},
        {"FindProcess", FakePlatform::kNoProcessList, 2, -1, 201, 201,
         "Worker process creation failed. Process ID = 0, Process name = xanu_audio_aiplc.exe"},
        {kSignal, 0, 1, 0, 0, 0,
         "Set AIPLC_WORKER_RECEIVER event failed (msgId = AIPLC_CHECK_READY) = 5"},
        {kProbe, kWaitTimeout, 0, 0, 201, 201, "Waiting for worker process to be ready: 5"},
        {"CreateMutex AiplcInferMutex", 0, 1, 0, -1, 0, "Create InferMutex failed: 5"},
        {kSignal, 0, 2, 0, -1, 0, "Set AIPLC_WORKER_RECEIVER event failed: 5"},
        {kInit, kWaitTimeout, 1, 0, -1, 0, "Wait for AIPLC_ADAPTER_RECEIVER failed. Init failed"},
        {kTake, kWaitAbandoned, 1, 0, 0, 310, "Previous inference has not finished"},
        {kCopy, 34, 1, 0, 0, -1, "memcpy_s AudioIn failed: ret = 34"},
        {"SetEvent AIPLC_INPUT_READY", 0, 1, 0, 0, -1, "Send AIPLC_INPUT_READY msg failed: 5"},
        {"ResetEvent AIPLC_PROCESS_STARTED", 0, 1, 0, 0, -1,
         "Reset AIPLC_PROCESS_STARTED failed: 5"},
        {kSignal, 0, 3, 0, 0, -1,
         "Setting AIPLC_WORKER_RECEIVER event for async inferencing failed: 5"},
        {kRelease, 0, 1, 0, 0, -1, "Release InferMutex failed: 5"},
        {kStarted, kWaitFailed, 1, 0, 0, -1,
         "AIPLC_PROCESS worker process didn't acknowledge: waitResult = -1"},
        {kStarted, kWaitTimeout, 1, 0, 0, -1, "Wait for worker's acknowledgement timeout"},
        {kTakeBack, kWaitTimeout, 1, 0, 0, -1,
         "AIPLC_PROCESS worker process timeout, use opus PLC."},
        {kTakeBack, kWaitAbandoned, 1, 0, 0, -1,
         "AIPLC_PROCESS worker process other wait err: 128"},
        {kCopy, 34, 2, 0, 0, -1, "memcpy_s AudioOut failed: ret = 34"},
        {kRelease, 0, 2, 0, 0, -1, "Release mutex after audio out failed: 5"},
        {kSignal, 0, 4, 0, 0, 0, "Send msg to worker process failed (AIPLC_DELETE): 5"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.line);
        scripted = {};
        scripted.answers[{"Start", 1}] = 0;
        scripted.answers[{each.call, each.nth}] = each.answer;
        {
            AiplcAdapter adapter;
            internal::CaptureStdout();
            EXPECT_EQ(adapter.Create(), each.create);
            EXPECT_EQ(internal::GetCapturedStdout() == "snapShot null\n",
                      each.answer == FakePlatform::kNoProcessList);
            EXPECT_EQ(adapter.Init(), each.init);
            EXPECT_EQ(each.init == -1 ? 0 : adapter.Process(record, 16), each.process);
            if (each.process == 310) {
                EXPECT_EQ(scripted.Block()->msgId, 0U);
            }
            EXPECT_EQ(scripted.mutexDepth, 0);
            EXPECT_EQ(adapter.m_ipc.sharedMem == nullptr, adapter.m_ipc.sharedMemHandle == nullptr);
            EXPECT_THAT(scripted.calls, Contains(kProbe).Times(AnyOf(0, 1, 10)));
            adapter.Delete();
        }
        EXPECT_EQ(scripted.Held(), 0);
        EXPECT_THAT(TakeLog(), HasSubstr(std::string(": ") + each.line + '\n'));
    }
}

TEST_F(Adapter, TellsTheOutcomesOfAWaitApart) {
    IPC ipc;
    Handle any = CreateNamedEvent("any");
    EXPECT_EQ(ipc.ReceiveEvent(InvalidHandle(), 7), -1);
    EXPECT_EQ(TakeLog(), "IPC: Invalid handle!\n\n");
    for (const auto &[outcome, result] : std::map<int64_t, int>{
             {0, 0}, {kWaitTimeout, 101}, {kWaitFailed, 104}, {kWaitAbandoned, 105}, {3, -1}}) {
        scripted.answers[{"Wait any 7", 0}] = outcome;
        EXPECT_EQ(ipc.ReceiveEvent(any, 7), result);
    }
}

}  // namespace
