// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "child_process.h"
#include "platform/platform.h"

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

class ProcessTest : public testing::Test {
  protected:
    ProcessTest() {
        fs::copy_file("/bin/sleep", m_path);
        std::ofstream(m_script) << kScript;
        fs::permissions(m_script, fs::perms::owner_all);
        mkfifo(m_pipe.c_str(), 0600);
    }
    ~ProcessTest() override { fs::remove_all(m_folder); }
    FindStatus Find() { return FindProcess(m_name.c_str(), &m_id); }

    const std::string m_name = "started " + std::to_string(getpid()) + ".exe";
    const fs::path m_folder = mkdtemp((fs::temp_directory_path() / "aiplc-XXXXXX").string().data());
    const fs::path m_path = m_folder / m_name;
    const fs::path m_script = m_folder / "script";
    const fs::path m_pipe = m_folder / "report";
    const std::string m_space = std::getenv("AIPLC_NAMESPACE");
    uint32_t m_id = 0;
};

TEST_F(ProcessTest, StartsDetachedAndLeavesNothingBehind) {
    dup2(STDERR_FILENO, 100);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    std::signal(SIGUSR2, SIG_IGN);
    ASSERT_TRUE(StartDetachedProcess(m_script.c_str())) << LastError();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child, ended or not";
    std::ifstream pipe(m_pipe);
    const std::string report(std::istreambuf_iterator<char>(pipe), {});
    EXPECT_EQ(report, "0 " + fs::current_path().string() + ' ' + m_space +
                          " 0\n/dev/null\n/dev/null\n"
                          "SigBlk:0000000000000000SigIgn:0000000000000000");
    while (Find() == FindStatus::absent)
        Sleep(1);
    kill(static_cast<pid_t>(m_id), SIGKILL);
    while (Find() == FindStatus::found)
        Sleep(1);
}

TEST_F(ProcessTest, ReportsWhyAStartFailed) {
    std::signal(SIGCHLD, SIG_IGN);
    const auto errorOf = [](const fs::path &path) {
        return StartDetachedProcess(path.c_str()) ? 0 : static_cast<int>(LastError());
    };
    EXPECT_EQ(errorOf(m_folder / "missing"), ENOENT);
    EXPECT_EQ(errorOf(m_folder), EACCES);
    EXPECT_EQ(errorOf(m_pipe), EACCES);
    std::signal(SIGCHLD, SIG_DFL);
}

TEST_F(ProcessTest, FindsLivingProcessesOfThisNamespaceByExactName) {
    EXPECT_EQ(Find(), FindStatus::absent);
    Child child([&](Line) { return execl(m_path.c_str(), "x", "600", nullptr); });
    while (Find() == FindStatus::absent)
        Sleep(1);
    EXPECT_EQ(m_id, static_cast<uint32_t>(child.id));
    fs::remove(m_path);
    EXPECT_EQ(Find(), FindStatus::found) << "also when its file has been removed";
    for (const std::string &other : {m_name + "x", m_name.substr(1), m_path.string()}) {
        EXPECT_EQ(FindProcess(other.c_str(), &m_id), FindStatus::absent) << other;
    }
    setenv("AIPLC_NAMESPACE", "elsewhere", 1);
    EXPECT_EQ(Find(), FindStatus::absent);
    setenv("AIPLC_NAMESPACE", m_space.c_str(), 1);
    kill(child.id, SIGKILL);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(child.id), &info, WEXITED | WNOWAIT);
    EXPECT_EQ(Find(), FindStatus::absent) << "a zombie";
}

TEST_F(ProcessTest, KnowsItsOwnExecutable) {
    char path[1024];
    const uint32_t length = ExecutablePath(path, sizeof path);
    EXPECT_EQ(std::string(path, length), fs::read_symlink("/proc/self/exe"));
    EXPECT_EQ(ExecutablePath(path, length), 0U) << "no room for the terminator";
}

}  // namespace
}  // namespace aiplc::platform
