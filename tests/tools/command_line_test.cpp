// SPDX-License-Identifier: BSD-2-Clause
//
// The program itself, run as a user would run it.

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdio>

#include "tests/tools/test_files.h"

namespace aiplc::tools {
namespace {

using testing::ElementsAre;

class CommandLineTest : public FolderTest {
  protected:
    CommandLineTest() { Write("in.wav", WavFile(Chirps(16000, 1.0), 16000)); }

    // Runs a shell command in the folder, $A being the program, and expects its exit code and
    // part of its output; returns all of it.
    std::string Shell(const std::string &command, int exitCode, const std::string &part = "") {
        const std::string prepare = "cd '" + Path("") + "'; A='" AIPLC_PROGRAM "'; ";
        std::FILE *pipe = popen((prepare + "unset AIPLC_NAMESPACE; " + command).c_str(), "r");
        std::string output;
        for (int c = 0; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;)
            output += static_cast<char>(c);
        const int status = pipe != nullptr ? pclose(pipe) : -1;
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == exitCode) << command << output;
        EXPECT_THAT(output, testing::HasSubstr(part)) << command;
        return output;
    }
};

TEST_F(CommandLineTest, WrongUsageIsTwoAndFailureIsOne) {
    using Case = std::tuple<const char *, int, const char *>;
    for (const auto &[arguments, exitCode, message] : std::initializer_list<Case>{
             {"", 2, "aiplc: "},
             {"concael x", 2, "'concael' is no command; did you mean conceal?; see aiplc --help"},
             {"in.wav", 2, "to conceal that file: aiplc conceal in.wav -o OUT.wav"},
             {"play", 2, "there are conceal and compare"},
             {"help", 0, "Measure methods of concealment"},
             {"help conceal", 0, "Examples:"},
             {"-V", 0, "libopus"},
             {"conceal in.wav -o o.FLAC", 2, "the output is WAV; give a name that ends in .wav"},
             {"conceal in.wav -o o.wav --loss abc", 2,
              "--loss: 'abc' is no number; give a percentage from 0 to below 100"},
             {"conceal in.wav -o o.wav --loss 5 --seed x", 2, "'x' is no whole number; give 0"},
             {"conceal in.wav -o o.wav --trace nix", 1, "nix: cannot be read"},
             {"conceal in.wav", 2, "aiplc: conceal: --output is required"},
             {"conceal in.wav -o o.wav --bitrate 5", 2, "6000"},
             {"conceal in.wav -o o.wav --rate 44", 2, "16 or 48"},
             {"conceal in.wav -o o.wav --decoder-complexity 11", 2, "from 0 to 10"},
             {"compare in.wav --loss 5 --decoder-complexity 5.5", 2, "a whole number"},
             {"conceal in.wav -o o.wav --loss 100", 2, "--loss 100"},
             {"conceal in.wav -o o.wav --loss 80 --burst 2", 2, "at most 66.6667 %"},
             {"conceal in.wav -o o.wav --burst 2", 2, "--loss PERCENT"},
             {"conceal in.wav -o o.wav --loss 5 --loss-trace t", 2, "one of them"},
             {"conceal in.wav -o o.wav --no-ai --require-ai", 2, "contradict"},
             {"conceal in.wav -o - --json -", 2, "standard output"},
             {"receive 0 --payload-type 72", 2, "'72' is no payload type; give 0 to 63 or 96 to"},
             {"conceal in.wav -o o.wav --ssrc 1", 2, "captures; in.wav is speech audio"},
             {"conceal in.wav -o o.wav --rate 16 --bandwidth fb", 2, "--rate 48"},
             {"conceal nix.wav -o o.wav", 1, "aiplc: conceal: nix.wav: cannot be opened"},
             {"conceal in.wav -o nix/o.wav", 1, "nix/o.wav: cannot be written"},
             {"conceal in.wav -o ./in.wav", 1, "the input itself"},
             {"conceal in.wav -o - --no-ai >/dev/full", 1, "standard output: cannot be written"},
             {"compare --loss 5", 2, "FILE is required"},
             {"compare in.wav", 2, "in.wav: speech audio has no losses of its own; give --loss"},
             {"compare in.wav --loss 5,x", 2, "'x' is no number; give percentages"},
             {"compare in.wav --loss 5,5", 2, "5 % is asked for twice"},
             {"compare in.wav in.wav --loss 5", 2, "given twice"},
             {"compare - --loss 5 <in.wav", 2, "only once"},
             {"compare /dev/null --loss 5", 1, "no plain file"},
             {"compare in.wav --loss 5 --json x --csv ./x", 2, "both write to x"},
             {"compare in.wav --loss 5 --csv ./in.wav", 1, "an input itself"},
             {"compare in.wav --trace nix", 1, "nix: cannot be read"},
             {"compare in.wav --loss-trace nix", 1, "nix: cannot be read"},
             {"compare in.wav --loss 5 --fail-if 'aiplc.lsb > 1'", 2, "lsd, mcd, estoi"},
             {"compare in.wav --loss 5 >/dev/full", 1, "standard output: cannot be written"},
             {"compare --help", 0, "3 a gate of --fail-if holds"},
             {"--version --verbose", 0, "xanu_audio_aiplc.model\n  version     2\n  parameters"},
             {"--verbose --version; AIPLC_MODEL=in.wav $A --verbose --version", 0,
              "in.wav: does not begin with AIPLCNN1"}}) {
        Shell("exec 2>&1; $A " + std::string(arguments), exitCode, message);
    }
    EXPECT_THAT(Names(), ElementsAre("in.wav"));
}

TEST_F(CommandLineTest, PipesCarryTheSameAsFiles) {
    const std::string options = " --loss 10 --no-ai ";
    Shell("$A conceal in.wav -o out.wav 2>&1" + options, 0, "1 channel\npackets   51,");
    const std::string wav = Read("out.wav");
    EXPECT_TRUE(Shell("cat in.wav | $A conceal - -o - --seed 1 -q 2>&1" + options, 0) == wav);
    EXPECT_TRUE(Shell("$A conceal in.wav -o /dev/fd/1 -q 2>&1" + options, 0) == wav);
    // A reader that goes early is no failure to be told of.
    const std::string early =
        "{ until [ -e gone ]; do :; done; $A conceal in.wav -o - -q --no-ai; echo $? >code; } "
        "2>err | { exec <&-; : >gone; }; cat err code";
    EXPECT_EQ(Shell(early, 0), "141\n");
    // A name that is no UTF-8 does not spoil the report.
    Shell("N=$(printf '\\377'); cp in.wav $N; $A conceal $N -o o.wav --json - -q" + options, 0,
          "{");
}

TEST_F(CommandLineTest, UsesTheWorkerOrSaysThatItCannot) {
    const std::string arguments = " conceal in.wav -o out.wav --loss 30 --burst 3 2>&1 ";
    Shell("$A" + arguments + "--require-ai --verbose", 0, " requests, ");
    // The program alone, without the worker's folder beside it.
    Shell("rm out.wav; mkdir bin; cp $A bin; bin/aiplc" + arguments + "--require-ai", 1);
    EXPECT_THAT(Names(), ElementsAre("bin", "in.wav"));
    Shell("bin/aiplc" + arguments, 0, "warning: the worker did not start");
    EXPECT_THAT(Names(), ElementsAre("bin", "in.wav", "out.wav"));
}

TEST_F(CommandLineTest, GateOfAComparisonHasItsOwnExitCode) {
    const std::string compare = "$A compare in.wav --loss 20 --json r.json -q 2>&1 --fail-if ";
    Shell(compare + "'silence.lsd > codec.lsd'", 3,
          "compare: --fail-if 'silence.lsd > codec.lsd' holds at 20 %: silence.lsd = ");
    EXPECT_THAT(Names(), ElementsAre("in.wav", "r.json"));  // what failed can be looked at
    Shell(compare + "'codec.lsd > silence.lsd'", 0);
    // A report on standard output stands there alone.
    EXPECT_EQ(Shell("$A compare in.wav --loss 20 --csv - -q", 0).rfind("scope,file,loss", 0), 0U);
}

TEST_F(CommandLineTest, InterruptLeavesNothingBehind) {
    Write("in.wav", WavFile(Chirps(16000, 60.0), 16000));
    for (const std::string interrupted :
         {"conceal in.wav -o out.wav --realtime --no-ai 2>&1 & SIGNAL=INT",
          "compare in.wav --loss 30 --html out.html 2>&1 & SIGNAL=TERM"}) {
        Shell("$A " + interrupted +
                  "; until [ -e .out.* ] || ! kill -0 $!; do :; done; kill -$SIGNAL $!; wait $!",
              130, "interrupted");
        EXPECT_THAT(Names(), ElementsAre("in.wav"));
    }
}

}  // namespace
}  // namespace aiplc::tools
