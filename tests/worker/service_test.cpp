// SPDX-License-Identifier: BSD-2-Clause

#include "service.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <thread>

using namespace aiplc;

namespace {

constexpr uint32_t kLongMs = 20000;
constexpr char kGoAhead[] = "TEST_GO_AHEAD";

bool Signalled(const worker::UniqueHandle &handle, uint32_t ms) {
    return platform::Wait(handle.get(), ms) == platform::kWaitSignalled;
}

// Answers with the first sample plus 1 and the number of predictions made; may wait for a go-ahead.
struct Counting : worker::Predictor {
    worker::UniqueHandle goAhead{platform::CreateNamedEvent(kGoAhead)};
    int16_t count = 0;
    void Predict(std::span<const int16_t, 2560> window,
                 std::span<int16_t, 2560> out) noexcept override {
        if (window[1] == -1) Signalled(goAhead, kLongMs);
        out[0] = static_cast<int16_t>(window[0] + 1);
        out[1] = ++count;
    }
};

// Forked before the test itself touches the namespace, as the worker must not inherit its locks.
pid_t ForkWorker() {
    const pid_t worker = fork();
    if (worker != 0) return worker;
    platform::JoinAsServer();
    Counting predictor;
    worker::Service service(predictor);
    _exit(service.Open() ? service.Run() : 1);
}

int ExitCode(pid_t process) {
    int status = 0;
    return waitpid(process, &status, 0) == process && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The library's side of the protocol.
struct Library {
    worker::UniqueHandle goAhead{platform::CreateNamedEvent(kGoAhead)};
    worker::UniqueHandle mapping{platform::CreateMapping(protocol::kSharedMemName, 10776)};
    worker::UniqueHandle receiver{platform::CreateNamedEvent(protocol::kWorkerReceiverName)};
    worker::UniqueHandle answer{platform::CreateNamedEvent(protocol::kAdapterReceiverName)};
    worker::UniqueHandle started{platform::CreateNamedEvent(protocol::kProcessStartedName)};
    worker::UniqueHandle inputReady{platform::CreateNamedEvent(protocol::kInputReadyName)};
    worker::UniqueHandle mutex{platform::CreateNamedMutex(protocol::kInferMutexName)};
    size_t size = 0;
    protocol::SharedBlock *block =
        static_cast<protocol::SharedBlock *>(platform::MapView(mapping.get(), &size));

    void Send(uint32_t message) const {
        block->msgId = message;
        platform::SetEvent(receiver.get());
    }
    bool Ask(uint32_t message) const {
        Send(message);
        return Signalled(answer, kLongMs);
    }
    void Write(int16_t first, int16_t second) const {
        ASSERT_TRUE(Signalled(mutex, kLongMs));  // not abandoned
        block->AudioIn[0] = first;
        block->AudioIn[1] = second;
        platform::SetEvent(inputReady.get());
        Send(protocol::AIPLC_PROCESS);
    }
    void Begin(int16_t first, int16_t second) const {
        Write(first, second);
        platform::ReleaseMutex(mutex.get());
        ASSERT_TRUE(Signalled(started, kLongMs));
    }
    void End(int first, int count) const {
        ASSERT_TRUE(Signalled(mutex, kLongMs));
        EXPECT_EQ(block->AudioOut[0], first);
        EXPECT_EQ(block->AudioOut[1], count);
        EXPECT_EQ(block->retCode, 0);
        platform::ReleaseMutex(mutex.get());
    }
};

}  // namespace

TEST(Service, AnswersEveryMessageAndServesEachRequestOnce) {
    const pid_t worker = ForkWorker();
    const Library library;
    EXPECT_TRUE(library.Ask(protocol::AIPLC_CHECK_READY));
    for (const uint32_t unknown : {0U, 5U, 0xFFFFFFFFU})
        library.Send(unknown);
    std::thread([&] { Signalled(library.mutex, kLongMs); }).join();  // leaves it abandoned
    EXPECT_TRUE(library.Ask(protocol::AIPLC_INIT));                  // makes the first prediction
    library.block->retCode = 7;
    library.Begin(41, -1);
    EXPECT_FALSE(Signalled(library.mutex, 0));  // late: the library refuses its next request
    library.block->msgId = protocol::AIPLC_NONE;
    platform::SetEvent(library.goAhead.get());
    library.End(42, 2);
    for (int16_t i = 3; i <= 20; ++i) {
        library.Send(protocol::AIPLC_PROCESS);  // left from a request that was given up
        library.Begin(i, 0);
        library.End(i + 1, i);
    }
    library.Write(0, 0);
    EXPECT_FALSE(Signalled(library.started, 50));  // enough to reach the wait for the mutex
    library.Send(protocol::AIPLC_DELETE);
    EXPECT_EQ(ExitCode(worker), 0);
    EXPECT_FALSE(Signalled(library.started, 0));
}

TEST(Service, EndsWithItsHost) {
    const pid_t worker = ForkWorker();
    const pid_t host = fork();
    if (host == 0) {
        const Library library;
        raise(library.Ask(protocol::AIPLC_CHECK_READY) ? SIGKILL : SIGTERM);
    }
    int status = 0;
    EXPECT_EQ(waitpid(host, &status, 0), host);
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_EQ(ExitCode(worker), 0);
}

TEST(WorkerProgram, NamesABlockThatIsTooSmall) {
    const worker::UniqueHandle mapping(platform::CreateMapping(protocol::kSharedMemName, 4096));
    FILE *pipe = popen(WORKER_PATH " 2>&1", "r");
    std::string said(256, '\0');
    said.resize(fread(said.data(), 1, said.size(), pipe));
    EXPECT_NE(said.find("4096 bytes, it needs 10776"), said.npos) << said;
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), 1);
}
