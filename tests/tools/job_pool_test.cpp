// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/job_pool.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <set>

#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;
using Report = std::function<void(double)>;

class JobPoolTest : public testing::Test {
  protected:
    // Runs jobs two at a time; returns what each wrote, in the order taken.
    static std::vector<std::string> Run(size_t jobs, const JobPool::Work &work) {
        JobPool pool(2);
        Progress progress(1, false);
        std::vector<std::string> outputs;
        pool.Run(
            std::vector<int64_t>(jobs, 1), work,
            [&](size_t job, int output) {
                EXPECT_EQ(job, outputs.size());
                std::array<char, 256> text{};
                const ssize_t got = read(output, text.data(), text.size());
                outputs.emplace_back(text.data(), static_cast<size_t>(got));
            },
            progress);
        return outputs;
    }

    static void Print(int output, const std::string &text) {
        ASSERT_EQ(write(output, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
};

TEST_F(JobPoolTest, EveryJobHasANamespaceOfItsOwn) {
    const std::vector<std::string> spaces = Run(5, [](size_t, int output, const Report &report) {
        report(0.5);
        const char *space = std::getenv("AIPLC_NAMESPACE");
        Print(output, space != nullptr ? space : "");
        report(1.0);
    });
    EXPECT_EQ(std::set<std::string>(spaces.begin(), spaces.end()).size(), 5U);
    EXPECT_THAT(spaces, testing::Each(testing::StartsWith("aiplc-")));
}

TEST_F(JobPoolTest, ResultsComeInOrderWhateverEndsFirst) {
    std::array<int, 2> gate{};
    ASSERT_EQ(pipe(gate.data()), 0);
    const auto outputs = Run(3, [&](size_t job, int output, const Report &) {
        char byte = 0;
        if (job == 0) {  // ends when the last one does
            ASSERT_EQ(read(gate[0], &byte, 1), 1);
        }
        Print(output, std::to_string(job));
        if (job == 2) {
            ASSERT_EQ(write(gate[1], &byte, 1), 1);
        }
    });
    EXPECT_THAT(outputs, testing::ElementsAre("0", "1", "2"));
}

TEST_F(JobPoolTest, FailuresArriveAsTheyWereThrown) {
    const auto run = [](const std::function<void()> &fail) {
        return [fail] {
            Run(4, [&](size_t job, int, const Report &report) {
                report(0.25);
                if (job == 1) fail();
            });
        };
    };
    EXPECT_THAT(run([] { throw Failure("a.wav", "is broken"); }),
                ThrowsMessage<Failure>("a.wav: is broken"));
    EXPECT_THAT(run([] { throw UsageError("never"); }), ThrowsMessage<UsageError>("never"));
    EXPECT_THROW(run([] { throw Interrupted(); })(), Interrupted);
    EXPECT_THAT(run([] { raise(SIGKILL); }), ThrowsMessage<Failure>(HasSubstr("signal 9")));
}

}  // namespace
}  // namespace aiplc::tools
