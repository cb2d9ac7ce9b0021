// SPDX-License-Identifier: BSD-2-Clause

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "src/platform/platform.h"
#include "tests/support/child_process.h"

namespace aiplc::platform {
namespace {

namespace fs = std::filesystem;

// Tests with a runtime directory of their own. Each runs in its own process.
struct NamespaceTest : testing::Test {
    NamespaceTest() { setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1); }
    ~NamespaceTest() override { fs::remove_all(runtime); }
    static void Enter(const char *name) { setenv("AIPLC_NAMESPACE", name, 1); }

    const fs::path runtime = mkdtemp(std::string("/dev/shm/aiplc-test-XXXXXX").data());
    const fs::path base = runtime / "aiplc";
    const fs::path ours = base / std::getenv("AIPLC_NAMESPACE");
};

TEST_F(NamespaceTest, IsPrivateAndGoesWithItsLastObject) {
    Handle event = CreateNamedEvent("E");
    EXPECT_EQ(fs::status(base).permissions(), fs::perms{0700});
    EXPECT_EQ(fs::status(ours).permissions(), fs::perms{0700});
    EXPECT_EQ(fs::status(ours / "E").permissions(), fs::perms{0600});
    Enter("other");
    EXPECT_TRUE(CloseHandle(CreateNamedMutex("E"))) << "the same name, another object";
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_TRUE(fs::is_empty(base));
    for (const char *next : {"other", "third"}) {
        Enter("other");
        Child([](Line) { return CreateNamedEvent("Left") == nullptr; }).Join();
        EXPECT_FALSE(fs::is_empty(base));
        Enter(next);
        EXPECT_TRUE(CloseHandle(CreateNamedEvent("E")));
        EXPECT_TRUE(fs::is_empty(base)) << "what is left behind goes with the next in " << next;
    }
    fs::remove(base);
    fs::permissions(runtime, fs::perms{0770});  // others may write here: it lies elsewhere
    EXPECT_NE(CreateNamedEvent("E"), nullptr);
    EXPECT_TRUE(fs::is_empty(runtime));
}

TEST_F(NamespaceTest, WaitsOnlySoLongForOneThatHoldsItsLock) {
    Handle event = CreateNamedEvent("E");
    const int held = open(ours.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_EQ(CreateNamedEvent("Late"), nullptr);
    EXPECT_EQ(LastError(), ETIMEDOUT);
    EXPECT_EQ(flock(held, LOCK_UN), 0);
    EXPECT_TRUE(CloseHandle(CreateNamedEvent("Late")));
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_TRUE(fs::exists(ours / "E")) << "it belongs to the holder of the lock meanwhile";
    EXPECT_EQ(flock(held, LOCK_UN), 0);
    EXPECT_TRUE(CloseHandle(CreateNamedEvent("Next")));
    EXPECT_TRUE(fs::is_empty(base));
    close(held);
}

TEST_F(NamespaceTest, TouchesNothingThatIsNotOurs) {
    const fs::path planted = runtime / "planted";
    fs::create_directory(planted);
    fs::permissions(planted, fs::perms{0700});
    const auto expectRefusal = [](uint32_t error, const fs::path &path) {
        EXPECT_EQ(CreateNamedEvent("E"), nullptr) << path;
        EXPECT_EQ(LastError(), error) << path;
    };
    for (const fs::path &path : {base, ours}) {
        fs::create_directory_symlink(planted, path);
        expectRefusal(ENOTDIR, path);
        fs::remove(path);
        fs::create_directory(path);
        fs::permissions(path, fs::perms{0750});
        expectRefusal(EPERM, path);
        fs::permissions(path, fs::perms{0700});
        // Only root can give a directory away.
        if (chown(path.c_str(), 1, 1) == 0) expectRefusal(EPERM, path);
        EXPECT_EQ(chown(path.c_str(), geteuid(), getegid()), 0);
    }
    fs::create_symlink(planted / "elsewhere", ours / "E");
    expectRefusal(ELOOP, ours / "E");
    EXPECT_TRUE(fs::is_empty(planted));
    for (const char *name : {"..", ".x", "a/b", "a b"}) {
        Enter(name);
        expectRefusal(EINVAL, name);
    }
}

// Exits with 0 when the hosts, who hold the mapping, have gone; handles of its own do not count.
constexpr auto kServe = [](Line line) {
    JoinAsServer();
    CreateNamedEvent("Own");
    return line.Tell() && WaitHostsGone() && OpenMapping("Alive") == nullptr ? 0 : 1;
};

// As the host of a worker that it has asked to quit: both let go in the same moment, and the
// worker's watch still waits for the hosts.
TEST_F(NamespaceTest, GoesWithItsLastHandleAlsoWhileAServerWatches) {
    for (int i = 0; i < 50; ++i) {
        Child server([](Line line) {
            JoinAsServer();
            if (!line.Tell() || !line.Await()) return 1;
            Handle own = CreateNamedEvent("Own");
            std::thread(WaitHostsGone).detach();
            return line.Tell() && line.Await() && CloseHandle(own) ? 0 : 1;
        });
        Handle alive = CreateMapping("Alive", 1);
        EXPECT_TRUE(server.line.Tell() && server.line.Await() && server.line.Tell());
        EXPECT_TRUE(CloseHandle(alive));
        EXPECT_EQ(server.Join(), 0);
        ASSERT_TRUE(fs::is_empty(base)) << i;
    }
}

constexpr auto kBeHost = [](Line line) {
    Handle alive = CreateMapping("Alive", 1);
    return line.Tell() && line.Await() && CloseHandle(alive) && line.Await() ? 0 : 1;
};

TEST_F(NamespaceTest, AServerWaitsUntilTheLastHostHasGone) {
    EXPECT_EQ(Child(kServe).Join(), 0) << "there never was one";
    for (const bool isLastKilled : {false, true}) {
        Child first(kBeHost);
        Child last(kBeHost);
        Child server(kServe);
        server.AwaitAsleep();
        first.Kill();
        isLastKilled ? last.Kill() : static_cast<void>(last.line.Tell());
        EXPECT_EQ(server.Join(), 0);
    }
}

// The dying server was stopped between finding all hosts gone and ending.
TEST_F(NamespaceTest, ANewHostDoesNotWaitForADyingServerAndIsSeenByTheOthers) {
    Child first(kBeHost);
    Child dying([this](Line line) {
        const int hosts = open((ours / ".hosts").c_str(), O_RDWR);
        return line.Tell() && flock(hosts, LOCK_EX) == 0 && line.Tell() && line.Await() ? 0 : 1;
    });
    first.Kill();
    dying.line.Await();
    Child server(kServe);
    server.AwaitAsleep();
    Child second(kBeHost);
    EXPECT_TRUE(second.isReady);
    dying.Kill();
    server.AwaitAsleep();  // again, for the second one
    second.line.Tell();
    EXPECT_EQ(server.Join(), 0);
}

}  // namespace
}  // namespace aiplc::platform
