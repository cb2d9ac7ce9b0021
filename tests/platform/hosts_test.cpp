// SPDX-License-Identifier: BSD-2-Clause

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include "child_process.h"
#include "platform/platform.h"
#include "runtime_directory.h"

namespace aiplc::platform {
namespace {

// Exits with 0 when the hosts, who hold the mapping, have gone; handles of its own do not count.
constexpr auto kServe = [](Line line) {
    JoinAsServer();
    const Handle own = CreateNamedEvent("Own");
    line.Tell();
    if (own == nullptr || !WaitHostsGone()) return 1;
    return OpenMapping("Alive") == nullptr ? 0 : 2;
};

constexpr auto kBeHost = [](Line line) {
    const Handle alive = CreateMapping("Alive", 1);
    line.Tell();
    line.Await();
    return CloseHandle(alive) && line.Await() ? 0 : 1;
};

using Hosts = RuntimeDirectory;

TEST_F(Hosts, AServerWaitsUntilTheLastOneHasGone) {
    EXPECT_EQ(Child(kServe).Join(), 0) << "there never was one";
    for (const bool isLastKilled : {false, true}) {
        Child first(kBeHost);
        first.line.Await();
        Child last(kBeHost);
        last.line.Await();
        Child server(kServe);
        server.line.Await();
        server.AwaitAsleep();
        first.Kill();
        server.AwaitAsleep();
        isLastKilled ? last.Kill() : last.line.Tell();
        EXPECT_EQ(server.Join(), 0);
    }
}

// The dying server was stopped between finding all hosts gone and ending.
TEST_F(Hosts, ANewOneDoesNotWaitForADyingServerAndIsSeenByTheOthers) {
    const std::string file = m_runtime + "/aiplc/" + m_space + "/.hosts";
    Child first(kBeHost);
    first.line.Await();
    Child dying([&](Line line) {
        const int hosts = open(file.c_str(), O_RDWR);
        line.Tell();
        flock(hosts, LOCK_EX);
        line.Tell();
        return line.Await() ? 0 : 1;
    });
    dying.line.Await();
    first.Kill();
    dying.line.Await();
    Child server(kServe);
    server.line.Await();
    server.AwaitAsleep();
    Child second(kBeHost);
    EXPECT_TRUE(second.line.Await());
    dying.Kill();
    server.AwaitAsleep();
    second.line.Tell();
    EXPECT_EQ(server.Join(), 0);
}

}  // namespace
}  // namespace aiplc::platform
