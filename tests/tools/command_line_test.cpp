// SPDX-License-Identifier: BSD-2-Clause
//
// The program itself, run as a user would run it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "scratch_folder.h"

namespace aiplc::tools {
namespace {

using testing::HasSubstr;

struct Result {
    int exitCode = -1;
    std::string output;
};

// Runs a shell command; $A is the program and $D the scratch folder.
Result Shell(const ScratchFolder &folder, const std::string &command) {
    const std::string line = "A='" AIPLC_PROGRAM "'; D='" + folder.Path("") +
                             "'; export A D; unset AIPLC_NAMESPACE; " + command;
    Result result;
    std::FILE *pipe = popen(line.c_str(), "r");
    if (pipe == nullptr) return result;
    std::array<char, 4096> block{};
    size_t got = 0;
    while ((got = std::fread(block.data(), 1, block.size(), pipe)) > 0) {
        result.output.append(block.data(), got);
    }
    const int status = pclose(pipe);
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    return result;
}

class CommandLineTest : public testing::Test {
  protected:
    CommandLineTest() { m_folder.Write("in.wav", WavFile(Babble(16000, 1.0), 16000, 1)); }

    void ExpectError(const std::string &arguments, int exitCode, const std::string &message) {
        const Result result = Shell(m_folder, "cd $D; $A " + arguments + " 2>&1");
        EXPECT_EQ(result.exitCode, exitCode) << arguments << "\n" << result.output;
        EXPECT_THAT(result.output, HasSubstr(message)) << arguments;
    }

    ScratchFolder m_folder;
};

TEST_F(CommandLineTest, WrongUsageIsTwoAndFailureIsOne) {
    ExpectError("", 2, "aiplc: ");
    ExpectError("mend in.wav", 2, "aiplc: ");
    ExpectError("conceal in.wav", 2, "aiplc: conceal: --output is required");
    ExpectError("conceal in.wav -o o.wav --bitrate 5", 2, "6000");
    ExpectError("conceal in.wav -o o.wav --rate 44", 2, "16 or 48");
    ExpectError("conceal in.wav -o o.wav --loss 100", 2, "--loss 100");
    ExpectError("conceal in.wav -o o.wav --loss 80 --burst 2", 2, "at most 66.6667 %");
    ExpectError("conceal in.wav -o o.wav --burst 2", 2, "--loss PERCENT");
    ExpectError("conceal in.wav -o o.wav --loss 5 --loss-trace t", 2, "one of them");
    ExpectError("conceal in.wav -o o.wav --no-ai --require-ai", 2, "contradict");
    ExpectError("conceal in.wav -o - --json -", 2, "standard output");
    ExpectError("conceal in.wav -o o.wav --ssrc 1", 2, "only for captures; in.wav is speech audio");
    ExpectError("conceal in.wav -o o.wav --rate 16 --bandwidth fb", 2, "--rate 48");
    ExpectError("conceal nix.wav -o o.wav", 1, "aiplc: conceal: nix.wav: cannot be opened");
    ExpectError("conceal in.wav -o nix/o.wav", 1, "nix/o.wav: cannot be written");
    ExpectError("conceal in.wav -o ./in.wav", 1, "the input itself");
    ExpectError("conceal in.wav -o o.wav --loss-trace nix", 1, "nix: cannot be read");
    ExpectError("conceal --help", 0, "Examples:");
    ExpectError("--version", 0, "libopus");
    EXPECT_EQ(m_folder.Names(), std::vector<std::string>({"in.wav"}));
}

TEST_F(CommandLineTest, PipesCarryTheSameAsFiles) {
    const Result files = Shell(
        m_folder, "cd $D; $A conceal in.wav -o out.wav --loss 10 --no-ai 2>summary && cat summary");
    ASSERT_EQ(files.exitCode, 0) << files.output;
    EXPECT_THAT(files.output, HasSubstr("of those lost"));
    const Result pipes = Shell(
        m_folder,
        "cd $D; cat in.wav | $A conceal - -o - --loss 10 --no-ai -q 2>quiet | cat >piped.wav");
    ASSERT_EQ(pipes.exitCode, 0);
    EXPECT_EQ(ReadBytes(m_folder.Path("piped.wav")), ReadBytes(m_folder.Path("out.wav")));
    EXPECT_EQ(ReadBytes(m_folder.Path("quiet")).size(), 0U);
    const Result json =
        Shell(m_folder, "cd $D; $A conceal in.wav -o /dev/null --json - --no-ai 2>summary");
    EXPECT_EQ(json.exitCode, 0);
    EXPECT_THAT(json.output, testing::StartsWith("{"));
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    const Result closed = Shell(m_folder, "cd $D; $A conceal in.wav -o /dev/full --no-ai 2>&1");
    EXPECT_EQ(closed.exitCode, 1);
    EXPECT_THAT(closed.output, HasSubstr("/dev/full: cannot be written"));
}

TEST_F(CommandLineTest, UsesTheWorkerOrSaysThatItCannot) {
    const Result with = Shell(m_folder,
                              "cd $D; $A conceal in.wav -o out.wav --loss 30 --burst 3 "
                              "--require-ai --verbose 2>&1");
    EXPECT_EQ(with.exitCode, 0) << with.output;
    EXPECT_THAT(with.output, HasSubstr(" requests, "));

    // The program alone, without the worker's folder beside it.
    const Result without = Shell(m_folder,
                                 "mkdir $D/bin && cp $A $D/bin && cd $D && rm -f out.wav && "
                                 "bin/aiplc conceal in.wav -o out.wav --loss 30 2>&1");
    EXPECT_EQ(without.exitCode, 0) << without.output;
    EXPECT_THAT(without.output, HasSubstr("warning: the worker did not start"));
    EXPECT_GT(ReadBytes(m_folder.Path("out.wav")).size(), 44U);
    const Result required =
        Shell(m_folder, "cd $D; rm out.wav; bin/aiplc conceal in.wav -o out.wav --require-ai 2>&1");
    EXPECT_EQ(required.exitCode, 1) << required.output;
    EXPECT_EQ(m_folder.Names(), std::vector<std::string>({"bin", "in.wav"}));
}

TEST_F(CommandLineTest, InterruptLeavesNothingBehind) {
    const std::string input = m_folder.Write("in.wav", WavFile(Babble(16000, 60.0), 16000, 1));
    const std::string output = m_folder.Path("out.wav");
    const pid_t child = fork();
    if (child == 0) {
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDERR_FILENO);
        execl(AIPLC_PROGRAM, AIPLC_PROGRAM, "conceal", input.c_str(), "-o", output.c_str(),
              "--realtime", "--no-ai", nullptr);
        _exit(127);
    }
    while (m_folder.Names().size() < 2 && waitpid(child, nullptr, WNOHANG) == 0) {
        std::this_thread::yield();
    }
    ASSERT_EQ(kill(child, SIGINT), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_EQ(m_folder.Names(), std::vector<std::string>({"in.wav"}));
}

}  // namespace
}  // namespace aiplc::tools
