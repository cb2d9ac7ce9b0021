// SPDX-License-Identifier: BSD-2-Clause

#include <cstdlib>
#include <optional>

#include "../platform/child_process.h"
#include "fixtures.h"
#include "platform/platform.h"

namespace {

using namespace aiplc::platform;
using namespace aiplc::protocol;

// How a request ends: the adapter's log and result.
struct Ending {
    const char *log;
    int result;
};
constexpr Ending kUnfinished = {"aiplcAdapter: Previous inference has not finished\n", 310};
constexpr Ending kIgnored = {
    "aiplcAdapter: Wait for worker's acknowledgement timeout\n"
    "aiplcAdapter: AsyncInfer failed: ret = -1\n",
    -1};
constexpr Ending kLate = {
    "aiplcAdapter: AIPLC_PROCESS worker process timeout, use opus PLC.\n"
    "aiplcAdapter: AsyncInfer failed: ret = 101\n",
    -1};
constexpr Ending kDead = {
    "aiplcAdapter: AIPLC_PROCESS worker process other wait err: 128\n"
    "aiplcAdapter: AsyncInfer failed: ret = -1\n",
    -1};

// A worker that adds one to the last sample and answers with the number that is its fate, or else
// stops or is late once, until told to go on, or dies at that point of a request.
int Serve(Line line, std::string fate) {
    JoinAsServer();
    const auto reach = [&](const char *point) {
        if (fate == point) raise(SIGKILL);
    };
    size_t size = 0;
    auto &block = *static_cast<SharedBlock *>(MapView(CreateMapping(kSharedMemName, 10776), &size));
    Handle mutex = CreateNamedMutex(kInferMutexName);
    Handle receiver = CreateNamedEvent(kWorkerReceiverName);
    Handle answer = CreateNamedEvent(kAdapterReceiverName);
    Handle started = CreateNamedEvent(kProcessStartedName);
    line.Tell();
    while (Wait(receiver, 60000) == kWaitSignalled) {
        if (block.msgId == AIPLC_INIT) SetEvent(answer);
        if (block.msgId != AIPLC_PROCESS) continue;
        reach("dies idle");
        if (fate == "stops" && raise(SIGSTOP) == 0) fate.clear();
        Wait(mutex, 60000);
        reach("dies unacknowledged");
        SetEvent(started);
        reach("dies serving");
        if (fate == "late" && line.Await()) fate.clear();
        block.AudioOut[2559] = static_cast<int16_t>(block.AudioIn[2559] + 1);
        block.retCode = std::atoi(fate.c_str());
        ReleaseMutex(mutex);
        reach("dies served");
    }
    return 1;
}

struct Session {
    explicit Session(const char *fate) : worker([=](Line line) { return Serve(line, fate); }) {
        adapter.workerRunning = true;
        EXPECT_EQ(adapter.Init(), 0);
    }
    ~Session() { adapter.Delete(); }
    Child worker;
    AiplcAdapter adapter;
};

struct Protocol : LoggedTest {
    // The time limits of a request are real, and a busy machine may not meet them: asks until the
    // request ends as it should, each time with a new worker of that fate, if any.
    void Expect(const Ending &wanted, const char *fate = nullptr) {
        int result = 0;
        InoutDetail record{};
        record.AudioIn[5118] = 41;
        for (int attempt = 0; attempt < 1000; ++attempt) {
            if (fate != nullptr) session.emplace(fate);
            log.clear();
            record.AudioOut[5118] = 0;
            result = session->adapter.Process(record, 16);
            if (log == wanted.log) break;
            // Refused: until the worker has given the mutex back.
            Handle mutex = session->adapter.m_ipc.inferMutex;
            if (result == kUnfinished.result && Wait(mutex, 10000) != kWaitTimeout) {
                ReleaseMutex(mutex);
            }
        }
        EXPECT_EQ(log, wanted.log);
        EXPECT_EQ(result, wanted.result);
        EXPECT_EQ(record.AudioOut[5118], log.empty() ? 42 : 0);
    }
    std::optional<Session> session;
};

TEST_F(Protocol, EndsEveryRequestAsItsWorkerAsksAndOutlivesIt) {
    const struct {
        const char *fate;
        Ending first, second, last;  // the last one after the worker was told to go on
    } cases[] = {
        {"7", {"", 7}, {"", 7}, {"", 7}},
        {"101", {"", 101}, {"", 101}, {"", 101}},
        {"310", {"", 310}, {"", 310}, {"", 310}},
        {"late", kLate, kUnfinished, {"", 0}},
        {"stops", kIgnored, kIgnored, {"", 0}},
        {"dies idle", kIgnored, kIgnored, kIgnored},
        {"dies unacknowledged", kIgnored, kUnfinished, kIgnored},
        {"dies serving", kDead, kIgnored, kIgnored},
        {"dies served", {"", 0}, kIgnored, kIgnored},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.fate);
        Expect(each.first, each.fate);
        Expect(each.second);
        session->worker.line.Tell();
        kill(session->worker.id, SIGCONT);
        Expect(each.last);
    }
}

TEST_F(Protocol, AsksALeftOverWorkerToQuitAndLetsAStoppedOneBe) {
    for (const bool isStopped : {false, true}) {
        AiplcAdapter first, next;
        first.Create();
        const auto leftOver = static_cast<pid_t>(first.GetProcessId(kWorkerExecutable));
        ASSERT_GT(leftOver, 0);
        if (isStopped) kill(leftOver, SIGSTOP);
        EXPECT_EQ(next.Create() + next.Init() + next.Delete(), 0);
        // A process that ended has no executable, also before it is reaped.
        const std::string executable = "/proc/" + std::to_string(leftOver) + "/exe";
        EXPECT_EQ(access(executable.c_str(), F_OK) == 0, isStopped);
        if (isStopped) kill(leftOver, SIGKILL);
    }
}

TEST_F(Protocol, GivesUpOnAWorkerThatNeverAnswersTheProbe) {
    CreateNamedEvent(kInferMutexName);  // where the worker needs a mutex
    AiplcAdapter adapter;
    EXPECT_EQ(adapter.Create(), 0);
    EXPECT_EQ(adapter.Init(), 201);
}

}  // namespace
