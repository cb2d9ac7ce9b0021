// SPDX-License-Identifier: BSD-2-Clause

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "child_process.h"
#include "platform/platform.h"

namespace aiplc::platform {
namespace {

namespace fs = std::filesystem;

// Tests with a runtime directory of their own. Each runs in its own process.
class NamespaceTest : public testing::Test {
  protected:
    NamespaceTest() { setenv("XDG_RUNTIME_DIR", m_runtime.c_str(), 1); }
    ~NamespaceTest() override {
        fs::remove_all(m_runtime);
        unsetenv("XDG_RUNTIME_DIR");
        setenv("AIPLC_NAMESPACE", m_space.c_str(), 1);
    }

    const std::string m_space = std::getenv("AIPLC_NAMESPACE");
    const fs::path m_runtime = mkdtemp(std::string("/dev/shm/aiplc-test-XXXXXX").data());
    const fs::path m_base = m_runtime / "aiplc";
    const fs::path m_ours = m_base / m_space;
};

TEST_F(NamespaceTest, IsPrivateAndGoesWithItsLastObject) {
    const Handle event = CreateNamedEvent("E");
    EXPECT_EQ(fs::status(m_base).permissions(), fs::perms{0700});
    EXPECT_EQ(fs::status(m_ours).permissions(), fs::perms{0700});
    EXPECT_EQ(fs::status(m_ours / "E").permissions(), fs::perms{0600});
    setenv("AIPLC_NAMESPACE", "other", 1);
    EXPECT_TRUE(CloseHandle(CreateNamedMutex("E"))) << "the same name, another object";
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_TRUE(fs::is_empty(m_base));
    for (const char *next : {"other", "third"}) {
        setenv("AIPLC_NAMESPACE", "other", 1);
        EXPECT_EQ(Child([](Line) { return CreateNamedEvent("Left") == nullptr; }).Join(), 0);
        EXPECT_FALSE(fs::is_empty(m_base));
        setenv("AIPLC_NAMESPACE", next, 1);
        EXPECT_TRUE(CloseHandle(CreateNamedEvent("E")));
        EXPECT_TRUE(fs::is_empty(m_base)) << "what is left behind goes with the next in " << next;
    }
}

TEST_F(NamespaceTest, TouchesNothingThatIsNotOurs) {
    const fs::path planted = m_runtime / "planted";
    fs::create_directory(planted);
    fs::permissions(planted, fs::perms{0700});
    const auto expectRefusal = [](int error, const fs::path &path) {
        EXPECT_EQ(CreateNamedEvent("E"), nullptr) << path;
        EXPECT_EQ(LastError(), static_cast<uint32_t>(error)) << path;
        EXPECT_EQ(OpenMapping("Block"), nullptr) << path;
    };
    for (const fs::path &path : {m_base, m_ours}) {
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
    fs::create_symlink(planted / "elsewhere", m_ours / "E");
    expectRefusal(ELOOP, m_ours / "E");
    EXPECT_TRUE(fs::is_empty(planted));
    for (const char *name : {"..", ".x", "a/b", "a b"}) {
        setenv("AIPLC_NAMESPACE", name, 1);
        expectRefusal(EINVAL, name);
    }
}

TEST_F(NamespaceTest, PassesOverARuntimeDirectoryOthersMayWriteTo) {
    fs::permissions(m_runtime, fs::perms{0770});
    const Handle event = CreateNamedEvent("E");
    EXPECT_NE(event, nullptr);
    EXPECT_TRUE(fs::is_empty(m_runtime));
    EXPECT_TRUE(CloseHandle(event));
}

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
    return line.Tell() && line.Await() && CloseHandle(alive) && line.Await() ? 0 : 1;
};

TEST_F(NamespaceTest, AServerWaitsUntilTheLastHostHasGone) {
    EXPECT_EQ(Child(kServe).Join(), 0) << "there never was one";
    for (const bool isLastKilled : {false, true}) {
        Child first(kBeHost);
        first.line.Await();
        Child last(kBeHost);
        last.line.Await();
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
    first.line.Await();
    Child dying([this](Line line) {
        const int hosts = open((m_ours / ".hosts").c_str(), O_RDWR);
        return line.Tell() && flock(hosts, LOCK_EX) == 0 && line.Tell() && line.Await() ? 0 : 1;
    });
    dying.line.Await();
    first.Kill();
    dying.line.Await();
    Child server(kServe);
    server.AwaitAsleep();
    Child second(kBeHost);
    EXPECT_TRUE(second.line.Await());
    dying.Kill();
    second.line.Tell();
    EXPECT_EQ(server.Join(), 0);
}

}  // namespace
}  // namespace aiplc::platform
