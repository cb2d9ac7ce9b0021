// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "src/platform/platform.h"
#include "tests/support/child_process.h"

namespace aiplc::platform {
namespace {

namespace fs = std::filesystem;

// Tells through the pipe "report" how it was started and goes on under the name of this test.
constexpr char kScript[] = R"(#!/bin/sh
from=$PWD
cd "${0%/*}"
read pid name state parent group session rest < /proc/$$/stat
{ echo $# $from $AIPLC_NAMESPACE $((session - $$))
  readlink /proc/$$/fd/0 /proc/$$/fd/2 /proc/$$/fd/100
  grep -e SigBlk -e SigIgn /proc/$$/status | tr -d '[:space:]'
} > report
exec ./*.exe 600
)";

struct ProcessTest : testing::Test {
    ProcessTest() {
        fs::copy_file("/bin/sleep", folder / name);
        std::ofstream(folder / "script") << kScript;
        fs::permissions(folder / "script", fs::perms::owner_all);
        mkfifo((folder / "report").c_str(), 0600);
    }
    ~ProcessTest() override { fs::remove_all(folder); }
    FindStatus Find(const std::string &wanted) { return FindProcess(wanted.c_str(), &id); }

    const std::string name = "started " + std::to_string(getpid()) + ".exe";
    const fs::path folder = mkdtemp((fs::temp_directory_path() / "aiplc-XXXXXX").string().data());
    const std::string space = std::getenv("AIPLC_NAMESPACE");
    uint32_t id = 0;
};

TEST_F(ProcessTest, StartsDetachedAndIsFoundByExactNameAsLongAsItLives) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // what belongs to the system belongs to this test
    dup2(STDERR_FILENO, 100);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    std::signal(SIGUSR2, SIG_IGN);
    ASSERT_TRUE(StartDetachedProcess((folder / "script").c_str())) << LastError();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), 0) << "none has ended";
    std::ifstream pipe(folder / "report");
    const std::string report(std::istreambuf_iterator<char>(pipe), {});
    const size_t ignored = report.find("SigIgn:");
    EXPECT_EQ(report.substr(0, ignored), "0 " + fs::current_path().string() + ' ' + space +
                                             " 0\n/dev/null\n/dev/null\n"
                                             "SigBlk:0000000000000000");
    // 32 and 33 are the C library's own, which stay as this process got them.
    EXPECT_EQ(std::stoull(report.substr(ignored + 7), nullptr, 16) & ~0x180000000ULL, 0U);
    while (Find(name) != FindStatus::found)
        Sleep(1);
    for (const std::string &other : {name + "x", name.substr(1), (folder / name).string()})
        EXPECT_EQ(Find(other), FindStatus::absent) << other;
    setenv("AIPLC_NAMESPACE", "elsewhere", 1);
    EXPECT_EQ(Find(name), FindStatus::absent);
    setenv("AIPLC_NAMESPACE", space.c_str(), 1);
    fs::remove(folder / name);
    EXPECT_EQ(Find(name), FindStatus::found) << "its file has been removed";
    kill(static_cast<pid_t>(id), SIGKILL);
    siginfo_t info{};
    waitid(P_PID, id, &info, WEXITED | WNOWAIT);
    EXPECT_EQ(info.si_pid, static_cast<pid_t>(id));
    EXPECT_EQ(Find(name), FindStatus::absent) << "a zombie";
}

TEST_F(ProcessTest, ReportsWhyAStartFailed) {
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_FALSE(StartDetachedProcess((folder / "missing").c_str()));
    EXPECT_EQ(LastError(), uint32_t{ENOENT});
    EXPECT_FALSE(StartDetachedProcess(folder.c_str()));
    EXPECT_EQ(LastError(), uint32_t{EACCES});
}

TEST_F(ProcessTest, IsFoundByTheNameOfALinkAndInItsOwnRuntimeDirectory) {
    const std::string link = "link to " + name;
    fs::create_symlink(folder / name, folder / link);
    const fs::path runtime = mkdtemp(std::string("/dev/shm/aiplc-test-XXXXXX").data());
    const auto runIn = [&](const char *value) {
        return [&, value](Line) {
            value == nullptr ? unsetenv("XDG_RUNTIME_DIR") : setenv("XDG_RUNTIME_DIR", value, 1);
            return execl((folder / link).c_str(), link.c_str(), "600", nullptr);
        };
    };
    unsetenv("XDG_RUNTIME_DIR");
    {
        const Child elsewhere(runIn(runtime.c_str()));
        EXPECT_EQ(Find(link), FindStatus::absent);
        setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
        EXPECT_EQ(Find(link), FindStatus::found);
        unsetenv("XDG_RUNTIME_DIR");
    }
    const Child here(runIn(nullptr));
    EXPECT_EQ(Find(link), FindStatus::found);
    fs::remove(runtime);
}

// One that another thread forks in that moment inherits whatever is open.
TEST_F(ProcessTest, DoesNotWaitForOtherChildren) {
    std::atomic<bool> ends = false;
    std::vector<pid_t> children;
    std::thread forking([&] {
        while (!ends && children.size() < 200) {
            const pid_t child = fork();
            if (child == 0) {
                sleep(30);
                _exit(0);
            }
            if (child > 0) children.push_back(child);
        }
    });
    const int64_t start = PerformanceCounter();
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(StartDetachedProcess((folder / name).c_str()));
    ends = true;
    forking.join();
    EXPECT_LT(PerformanceCounter() - start, 25 * PerformanceFrequency());
    for (const pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

TEST_F(ProcessTest, KnowsItsOwnExecutable) {
    char path[1024];
    const uint32_t length = ExecutablePath(path, sizeof path);
    EXPECT_EQ(std::string(path, length), fs::read_symlink("/proc/self/exe"));
    EXPECT_EQ(ExecutablePath(path, length), 0U) << "no room for the terminator";
}

}  // namespace
}  // namespace aiplc::platform
