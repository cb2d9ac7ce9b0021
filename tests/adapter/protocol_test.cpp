// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/adapter.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "src/adapter/protocol.h"
#include "src/platform/platform.h"

namespace {

using namespace aiplc::platform;
using namespace aiplc::protocol;

TEST(Protocol, GivesUpOnAWorkerThatNeverAnswersTheProbe) {
    Handle event = CreateNamedEvent(kInferMutexName);  // where the worker needs a mutex
    AiplcAdapter adapter;
    EXPECT_EQ(adapter.Create(), 0);
    EXPECT_EQ(adapter.Init(), 201);
    CloseHandle(event);
}

TEST(Protocol, AsksALeftOverWorkerToQuitAndLetsAStoppedOneBe) {
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

}  // namespace
