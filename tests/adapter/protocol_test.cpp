// SPDX-License-Identifier: BSD-2-Clause
//
// Requests between real processes. The time limits of a request are real too, and a busy machine
// may not meet them: where a test needs them met, it asks until they were.

#include <aiplc/adapter.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>

#include "adapter/protocol.h"
#include "log_lines.h"
#include "platform/platform.h"

namespace {

namespace platform = aiplc::platform;
using testing::ElementsAre;

constexpr int kAttempts = 500;
const std::string kUnit = "aiplcAdapter: ";
const std::string kUnacknowledged = kUnit + "Wait for worker's acknowledgement timeout";
const std::string kTooLate = kUnit + "AIPLC_PROCESS worker process timeout, use opus PLC.";
const std::string kUnfinished = kUnit + "Previous inference has not finished";

class Protocol : public testing::Test {
  protected:
    Protocol() { CaptureLog(); }
    ~Protocol() override {
        Stop();
        AiplcRegLog(nullptr);
    }

    static pid_t Worker() {
        uint32_t id = 0;
        platform::FindProcess(aiplc::protocol::kWorkerExecutable, &id);
        return static_cast<pid_t>(id);
    }

    static void AwaitNoWorker() {
        while (Worker() != 0)
            platform::Sleep(1);
    }

    // The adapter goes last, so that it takes the killed workers' objects with it.
    void Stop() {
        while (const pid_t worker = Worker())
            kill(worker, SIGKILL);
        if (m_adapter != nullptr) m_adapter->Delete();
        m_adapter.reset();
    }

    void Start(const char *behaviour) {
        Stop();
        setenv("AIPLC_FAKE_WORKER", behaviour, 1);
        m_adapter = std::make_unique<AiplcAdapter>();
        ASSERT_EQ(m_adapter->Create(), 0);
        ASSERT_EQ(m_adapter->Init(), 0);
        TakeLog();
    }

    // One request, its log kept. It may last 10 + 16 ms, and what the machine adds.
    int Request() {
        using Clock = std::chrono::steady_clock;
        TakeLog();
        m_record = {};
        m_record.AudioIn[5118] = 41;
        const auto begin = Clock::now();
        const int result = m_adapter->Process(m_record, 16);
        EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(26 + 200));
        if (Logged(kUnacknowledged) != 0) {
            EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(10));
        }
        return result;
    }

    // The first request that was answered in time.
    int AnsweredRequest() {
        int result = Request();
        for (int i = 0; i < kAttempts && !logLines.empty(); ++i)
            result = Request();
        EXPECT_EQ(m_record.AudioOut[5118], 42);
        return result;
    }

    // Starts workers of this behaviour until the first request ends with these lines.
    int FirstRequest(const char *behaviour, const std::vector<std::string> &lines) {
        for (int i = 0; i < kAttempts; ++i) {
            Start(behaviour);
            const int result = Request();
            if (logLines == lines) return result;
        }
        ADD_FAILURE() << "never ended as expected: " << testing::PrintToString(logLines);
        return 0;
    }

    std::unique_ptr<AiplcAdapter> m_adapter;
    InoutDetail m_record{};
};

TEST_F(Protocol, HandsTheWorkersOwnResultThrough) {
    for (const int code : {0, 7, 101, 310}) {
        Start(std::to_string(code).c_str());
        EXPECT_EQ(AnsweredRequest(), code);
    }
}

TEST_F(Protocol, RefusesRequestsWhileALateWorkerServes) {
    EXPECT_EQ(FirstRequest("late", {kTooLate, kUnit + "AsyncInfer failed: ret = 101"}), -1);
    EXPECT_EQ(m_record.AudioOut[5118], 0);
    EXPECT_EQ(Request(), 310);
    EXPECT_THAT(TakeLog(), ElementsAre(kUnfinished));

    void *finish = platform::CreateNamedEvent("FAKE_WORKER_FINISH");
    platform::SetEvent(finish);
    platform::CloseHandle(finish);
    ASSERT_EQ(platform::Wait(m_adapter->m_ipc.inferMutex, 30000), platform::kWaitSignalled);
    platform::ReleaseMutex(m_adapter->m_ipc.inferMutex);
    EXPECT_EQ(AnsweredRequest(), 0);
}

TEST_F(Protocol, OutlivesAWorkerKilledAtAnyPoint) {
    const std::string failed = kUnit + "AsyncInfer failed: ret = -1";
    const std::vector<std::string> unanswered = {kUnacknowledged, failed};
    const struct {
        const char *behaviour;
        std::vector<std::string> lines;
        int result;
        int next;
    } cases[] = {
        {"dies idle", unanswered, -1, -1},
        {"dies unacknowledged", unanswered, -1, 310},
        {"dies serving",
         {kUnit + "AIPLC_PROCESS worker process other wait err: 128", failed},
         -1,
         -1},
        {"dies served", {}, 0, -1},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.behaviour);
        EXPECT_EQ(FirstRequest(each.behaviour, each.lines), each.result);
        AwaitNoWorker();
        EXPECT_EQ(Request(), each.next);
        EXPECT_EQ(logLines, each.next == 310 ? std::vector{kUnfinished} : unanswered);
        EXPECT_EQ(Request(), -1) << "the mutex is free again";
        EXPECT_EQ(logLines, unanswered);
    }
}

TEST_F(Protocol, GoesOnWithAWorkerThatWasStopped) {
    Start("stops");
    EXPECT_EQ(Request(), -1);
    EXPECT_EQ(Logged(kUnacknowledged), 1);
    int result = -1;
    for (int i = 0; i < kAttempts && result != 0; ++i) {
        kill(Worker(), SIGCONT);
        result = Request();
    }
    EXPECT_EQ(result, 0);
}

TEST_F(Protocol, AsksALeftOverWorkerToQuitAndLetsAStubbornOneBe) {
    for (const bool stubborn : {false, true}) {
        Start(stubborn ? "stubborn" : "0");
        const pid_t leftOver = Worker();
        setenv("AIPLC_FAKE_WORKER", "0", 1);
        AiplcAdapter next;
        EXPECT_EQ(next.Create(), 0);
        EXPECT_EQ(Logged(kUnit + "Cannot find process xanu_audio_aiplc.exe"), stubborn ? 0 : 1);
        // A process that ended has no executable, also before it is reaped.
        const std::string executable = "/proc/" + std::to_string(leftOver) + "/exe";
        EXPECT_EQ(access(executable.c_str(), F_OK) == 0, stubborn);
        EXPECT_EQ(next.Init(), 0);
        EXPECT_EQ(next.Delete(), 0);
    }
}

}  // namespace
