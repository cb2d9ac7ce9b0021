// SPDX-License-Identifier: BSD-2-Clause

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "child_process.h"
#include "platform/platform.h"
#include "runtime_directory.h"

namespace aiplc::platform {
namespace {

namespace fs = std::filesystem;

class NamespaceTest : public RuntimeDirectory {
  protected:
    const fs::path m_base = fs::path(m_runtime) / "aiplc";
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
        Child killed([](Line) { return CreateNamedEvent("Left") == nullptr ? 1 : 0; });
        EXPECT_EQ(killed.Join(), 0);
        EXPECT_FALSE(fs::is_empty(m_base));
        setenv("AIPLC_NAMESPACE", next, 1);
        EXPECT_TRUE(CloseHandle(CreateNamedEvent("E")));
        EXPECT_TRUE(fs::is_empty(m_base)) << "what is left behind goes with the next in " << next;
    }
}

TEST_F(NamespaceTest, TouchesNothingThatIsNotOurs) {
    const fs::path planted = fs::path(m_runtime) / "planted";
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

}  // namespace
}  // namespace aiplc::platform
