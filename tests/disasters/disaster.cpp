// SPDX-License-Identifier: BSD-2-Clause

#include "tests/disasters/disaster.h"

#include <sys/prctl.h>

#include <cstdlib>

#include "tests/support/open_descriptors.h"

namespace aiplc::host {

Disaster::Disaster() {
    // Processes that end without a parent become this one's children: none may be left.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
#if defined(__SANITIZE_ADDRESS__)
    setenv("ASAN_OPTIONS", "handle_segv=0", 1);  // a worker crashes as it would elsewhere
    setenv("AIPLC_MODEL", "autoregressive", 1);  // in time on a slow machine too
#endif
    (void)OpenDescriptors();
    m_descriptors = OpenDescriptors();
}

std::string Disaster::NamespaceName() {
    const char *const name = std::getenv("AIPLC_NAMESPACE");
    return name != nullptr ? name : "default";
}

fs::path Disaster::NamespaceFolder() {
    const char *const runtime = std::getenv("XDG_RUNTIME_DIR");
    const fs::path base = runtime != nullptr && fs::exists(fs::path(runtime) / "aiplc")
                              ? fs::path(runtime) / "aiplc"
                              : fs::path("/dev/shm/aiplc-" + std::to_string(geteuid()));
    return base / NamespaceName();
}

pid_t Disaster::Worker() {
    uint32_t id = 0;
    const auto status = platform::FindProcess(protocol::kWorkerExecutable, &id);
    return status == platform::FindStatus::found ? static_cast<pid_t>(id) : 0;
}

void Disaster::Send(pid_t worker, int signal) {
    if (worker > 0) kill(worker, signal);  // 0: all of this test
}

bool Disaster::Await(const std::function<bool()> &condition, double seconds) {
    for (const auto begin = Clock::now(); MsSince(begin) < 1000 * seconds;) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return condition();
}

bool Disaster::AwaitEnd(pid_t worker) {
    return Await([=] { return waitpid(worker, nullptr, WNOHANG) == worker; });
}

SabotagedCall::Figures Disaster::ExpectSound(const std::string &what,
                                             const std::function<SabotagedCall::Figures()> &play) {
    SabotagedCall::Figures figures;
    double limitMs = 0;
    for (int attempt = 0; attempt < 3; ++attempt) {
        const SchedulingNoise noise;
        figures = play();
        EXPECT_EQ(figures.silent, 0) << what;
        limitMs = SabotagedCall::kLimitMs + 2 * noise.LongestMs() + 2;
        if (figures.longestMs <= limitMs) break;
    }
    EXPECT_LE(figures.longestMs, limitMs) << what;
    std::printf("longest call %4.1f ms, %2d frames predicted, %2d in second looks: %s\n",
                figures.longestMs, figures.predicted, figures.secondLooks, what.c_str());
    std::fflush(stdout);  // a forked host ends without it
    return figures;
}

int Disaster::RunHost(const std::string &what, int periods, bool isPaced) {
    ExpectSound(what, [&] {
        SabotagedCall call;
        call.Play(
            periods, [] {}, isPaced);
        return call.Result();
    });
    return HasFailure() ? 1 : 0;
}

void Disaster::ExpectNothingLeft(const std::string &what, Left left) const {
    // A worker that starts so late that its host has given it up and gone waits a minute for
    // another.
    constexpr double kWorkerAloneSeconds = 80;
    EXPECT_TRUE(Await([] { return Worker() == 0; }, kWorkerAloneSeconds)) << what;
    const auto hasNoChild = [] {
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        return waitpid(-1, nullptr, WNOHANG) < 0;
    };
    EXPECT_TRUE(Await(hasNoChild, kWorkerAloneSeconds)) << what;
    EXPECT_EQ(OpenDescriptors(), m_descriptors) << what;
    if (left == Left::untilTheNextHost) platform::CloseHandle(platform::CreateNamedEvent("Next"));
    EXPECT_FALSE(fs::exists(NamespaceFolder())) << what;
}

}  // namespace aiplc::host
