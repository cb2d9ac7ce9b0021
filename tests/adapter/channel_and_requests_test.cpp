// SPDX-License-Identifier: BSD-2-Clause
//
// IPC and AiplcAdapter over a platform that fails on demand.

#include <aiplc/adapter.h>
#include <gmock/gmock.h>

#include "log_lines.h"
#include "platform/platform.h"
#include "scripted_platform.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Answers = std::deque<uint32_t>;
using Lines = std::vector<std::string>;

constexpr uint32_t kLate = 258;
constexpr uint32_t kAbandoned = 128;
constexpr uint32_t kBroken = 0xFFFFFFFF;
const std::string kUnit = "aiplcAdapter: ";

class Channel : public testing::Test {
  protected:
    Channel() {
        scripted = {};
        CaptureLog();
    }
    ~Channel() override { AiplcRegLog(nullptr); }
};

TEST_F(Channel, FailsAtTheThirdEventAndClosesTheFirstTwo) {
    scripted.answers["OpenMapping SharedMem"] = {0};
    scripted.answers["CreateEvent AIPLC_PROCESS_STARTED"] = {0};
    {
        IPC ipc;
        EXPECT_EQ(ipc.Init(), -1);
        EXPECT_EQ(TakeLog(), (Lines{"IPC: memroy-mapped file doesn't exist, creating a new one.\n",
                                    "IPC: CreateEvent failed: eventName = "
                                    "AIPLC_PROCESS_STARTED\n"}));
        EXPECT_EQ(scripted.calls.back(), "CreateEvent AIPLC_PROCESS_STARTED");
        scripted.calls.clear();
    }
    EXPECT_EQ(
        TakeLog(),
        (Lines{"IPC: IPC destructor was called!\n", "IPC: Shared mem was released!\n",
               "IPC: SharedMemHandle was closed!\n", "IPC: IPC destruction was completed!\n"}));
    EXPECT_THAT(scripted.calls, testing::UnorderedElementsAre("UnmapView", "Close SharedMem",
                                                              "Close AIPLC_WORKER_RECEIVER",
                                                              "Close AIPLC_ADAPTER_RECEIVER"));
}

TEST_F(Channel, WithoutAUsableBlockRefusesToStartAWorker) {
    constexpr char kCreate[] = "CreateMapping SharedMem";
    const struct {
        std::map<std::string, Answers> answers;
        size_t viewBytes;
        const char *line;
    } cases[] = {
        {{{"OpenMapping SharedMem", {0}}, {kCreate, {0}}}, 10776, "Create shared mem failed!\n"},
        {{{"MapView", {0}}}, 10776, "MapViewOfFile failed: err = 5\n"},
        {{}, 10775, "Shared mem is too small: 10775 bytes, 10776 bytes are needed\n"},
    };
    for (const auto &each : cases) {
        scripted = {};
        scripted.answers = each.answers;
        scripted.viewBytes = each.viewBytes;
        AiplcAdapter adapter;
        EXPECT_EQ(adapter.m_ipc.sharedMem, nullptr);
        EXPECT_EQ(adapter.m_ipc.sharedMemHandle, nullptr);
        EXPECT_EQ(adapter.Create(), 204);
        Lines log = TakeLog();
        EXPECT_EQ(Lines(log.end() - 3, log.end()),
                  (Lines{std::string("IPC: ") + each.line, kUnit + "IPC init failed!",
                         kUnit + "adapter IPC failed"}));
    }
}

TEST_F(Channel, DoesNotWaitOnAnInvalidHandle) {
    IPC ipc;
    EXPECT_EQ(ipc.ReceiveEvent(aiplc::platform::InvalidHandle(), 7), -1);
    EXPECT_THAT(scripted.calls, IsEmpty());
    EXPECT_EQ(logLines, Lines{"IPC: Invalid handle!\n"});
    scripted.answers["Wait null 7"] = {0, kLate, kBroken, kAbandoned, 3};
    for (const int expected : {0, 101, 104, 105, -1}) {
        EXPECT_EQ(ipc.ReceiveEvent(nullptr, 7), expected);
    }
}

TEST_F(Channel, StartsProbesInitialisesAndStopsTheWorker) {
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
    EXPECT_THAT(
        scripted.calls,
        ElementsAre("Start /host/x64/xanu_audio_aiplc.exe", "SetEvent AIPLC_WORKER_RECEIVER",
                    "Wait AIPLC_ADAPTER_RECEIVER 200", "CreateMutex AiplcInferMutex",
                    "SetEvent AIPLC_WORKER_RECEIVER", "Wait AIPLC_ADAPTER_RECEIVER 5000",
                    "SetEvent AIPLC_WORKER_RECEIVER", "Close AiplcInferMutex"));
    std::string log;
    for (const std::string &line : TakeLog())
        log += line.substr(kUnit.size()) + "\n";
    EXPECT_EQ(log, R"(TerminatePreviousProcess: Checking former process...
Cannot find process xanu_audio_aiplc.exe
TerminatePreviousProcess OK
Creating worker process: /host/x64/xanu_audio_aiplc.exe
Worker process is ready
Worker process creation succeeded. Process ID = 4711, Process name = xanu_audio_aiplc.exe
AiplcAdapter::Create OK
AiplcAdapter Init running...
Init Success
AIPLC::Delete running...
AIPLC_ADATER::Delete OK
AIPLC::Delete running...
)");
}

TEST_F(Channel, ReportsEveryFailedStepOfAStart) {
    constexpr char kSet[] = "SetEvent AIPLC_WORKER_RECEIVER";
    constexpr char kProbe[] = "Wait AIPLC_ADAPTER_RECEIVER 200";
    constexpr char kInit[] = "Wait AIPLC_ADAPTER_RECEIVER 5000";
    constexpr char kNoProbe[] =
        "Set AIPLC_WORKER_RECEIVER event failed (msgId = AIPLC_CHECK_READY) = 5";
    constexpr char kGone[] =
        "Worker process creation failed. Process ID = 0, Process name = xanu_audio_aiplc.exe";
    const struct {
        const char *call;
        Answers answers;
        Answers processIds;
        int create;
        int init;
        int times;
        const char *line;
    } cases[] = {
        {"Start /host/x64/xanu_audio_aiplc.exe", {0}, {0}, -1, 201, 1, "CreateProcess Error: 5"},
        {kProbe, Answers(10, kLate), {0}, 0, 201, 10, "Waiting for worker process to be ready: 5"},
        {kSet, {0, 0, 1}, {0, 9}, 0, 0, 2, kNoProbe},
        {"", {}, {0, 0}, -1, 201, 1, kGone},
        {"", {}, {0, 0}, -1, 201, 1, "CreateWorkerProcess() failed: ret = -1"},
        {kSet, {0}, {8, 0, 9}, 0, 0, 1, "Send msg to worker process failed (AIPLC_DELETE): 5"},
        {"CreateMutex AiplcInferMutex", {0}, {0, 9}, 0, -1, 1, "Create InferMutex failed: 5"},
        {kSet, {1, 0}, {0, 9}, 0, -1, 1, "Set AIPLC_WORKER_RECEIVER event failed: 5"},
        {kInit, {kLate}, {0, 9}, 0, -1, 1, "Wait for AIPLC_ADAPTER_RECEIVER failed. Init failed"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.line);
        scripted = {};
        scripted.answers[each.call] = each.answers;
        scripted.processIds = each.processIds;
        AiplcAdapter adapter;
        EXPECT_EQ(adapter.Create(), each.create);
        EXPECT_EQ(adapter.Init(), each.init);
        EXPECT_EQ(Logged(kUnit + each.line), each.times);
        TakeLog();
    }
}

TEST_F(Channel, SaysOnStandardOutputThatProcessesCannotBeListed) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(AiplcAdapter().GetProcessId("any"), 0U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "snapShot null\n");
}

class Request : public Channel {
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
    constexpr char kFirstTake[] = "Wait AiplcInferMutex 0";
    constexpr char kSecondTake[] = "Wait AiplcInferMutex 16";
    constexpr char kAcknowledged[] = "Wait AIPLC_PROCESS_STARTED 10";
    constexpr char kRelease[] = "Release AiplcInferMutex";
    constexpr char kNotSet[] =
        "Setting AIPLC_WORKER_RECEIVER event for async inferencing failed: 5";
    constexpr char kUnacknowledged[] =
        "AIPLC_PROCESS worker process didn't acknowledge: waitResult = -1";
    constexpr char kUnfinished[] = "Previous inference has not finished";
    const struct {
        const char *call;
        Answers answers;
        int result;
        int asyncInfer;  // its result, 0 where it is not reached
        const char *line;
    } cases[] = {
        {kFirstTake, {kLate}, 310, 0, kUnfinished},
        {kFirstTake, {kAbandoned}, 310, 0, kUnfinished},
        {kFirstTake, {kBroken}, 310, 0, kUnfinished},
        {"CopyBounded 5120", {34}, -1, 0, "memcpy_s AudioIn failed: ret = 34"},
        {"SetEvent AIPLC_INPUT_READY", {0}, -1, 0, "Send AIPLC_INPUT_READY msg failed: 5"},
        {"ResetEvent AIPLC_PROCESS_STARTED", {0}, -1, 0, "Reset AIPLC_PROCESS_STARTED failed: 5"},
        {"SetEvent AIPLC_WORKER_RECEIVER", {0}, -1, -1, kNotSet},
        {kRelease, {0}, -1, -1, "Release InferMutex failed: 5"},
        {kAcknowledged, {kLate}, -1, -1, "Wait for worker's acknowledgement timeout"},
        {kAcknowledged, {kBroken}, -1, -1, kUnacknowledged},
        {kSecondTake, {kLate}, -1, 101, "AIPLC_PROCESS worker process timeout, use opus PLC."},
        {kSecondTake, {kAbandoned}, -1, -1, "AIPLC_PROCESS worker process other wait err: 128"},
        {"CopyBounded 5120", {0, 34}, -1, -1, "memcpy_s AudioOut failed: ret = 34"},
        {kRelease, {1, 0}, -1, -1, "Release mutex after audio out failed: 5"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.line);
        scripted.answers = {{each.call, each.answers}};
        EXPECT_EQ(m_adapter.Process(m_record, 16), each.result);
        Lines expected = {kUnit + each.line};
        if (each.asyncInfer != 0) {
            expected.push_back(kUnit +
                               "AsyncInfer failed: ret = " + std::to_string(each.asyncInfer));
        }
        EXPECT_EQ(TakeLog(), expected);
        EXPECT_EQ(scripted.mutexDepth, 0);
        EXPECT_EQ(scripted.block.msgId == 0, each.result == 310);
        scripted.block.msgId = 2;
    }
}

TEST_F(Request, IsRefusedWithoutBlockOrWorker) {
    void *block = std::exchange(m_adapter.m_ipc.sharedMem, nullptr);
    EXPECT_EQ(m_adapter.Process(m_record, 16), 202);
    m_adapter.m_ipc.sharedMem = block;
    m_adapter.workerRunning = false;
    EXPECT_EQ(m_adapter.Process(m_record, 16), 201);
    EXPECT_EQ(TakeLog(),
              (Lines{kUnit + "Shared mem is NULL!", kUnit + "Worker process is not running!"}));
    EXPECT_THAT(scripted.calls, IsEmpty());
}

}  // namespace
