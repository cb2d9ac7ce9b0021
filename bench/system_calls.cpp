// SPDX-License-Identifier: BSD-2-Clause

#include "bench/system_calls.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <exception>

namespace aiplc::bench {

namespace {

// The mark: a call that nothing measured makes.
constexpr long kMark = SYS_getppid;
constexpr int kSystemCallStop = SIGTRAP | 0x80;  // with PTRACE_O_TRACESYSGOOD

[[noreturn]] void RunTraced(const std::function<bool()> &work) {
    bool isDone = false;
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0) {
        try {
            isDone = work();
        } catch (const std::exception &) {
            isDone = false;
        }
    }
    _exit(isDone ? 0 : 1);
}

// The number of the call that the stopped child enters; -1 on its way out of one.
std::optional<int64_t> EnteredCall(pid_t child) {
    __ptrace_syscall_info info{};
    const auto size = reinterpret_cast<void *>(sizeof info);  // NOLINT: ptrace's own convention
    if (ptrace(PTRACE_GET_SYSCALL_INFO, child, size, &info) <= 0) return std::nullopt;
    return info.op == PTRACE_SYSCALL_INFO_ENTRY ? static_cast<int64_t>(info.entry.nr) : -1;
}

// Follows the child to its end.
std::optional<int64_t> Follow(pid_t child) {
    int64_t calls = 0;
    bool isCounting = false;
    int signal = 0;
    for (int status = 0; ptrace(PTRACE_SYSCALL, child, nullptr, signal) == 0;) {
        if (waitpid(child, &status, 0) != child) return std::nullopt;
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return calls;
        if (!WIFSTOPPED(status)) return std::nullopt;
        signal = WSTOPSIG(status) == kSystemCallStop ? 0 : WSTOPSIG(status);
        if (signal != 0) continue;
        const std::optional<int64_t> call = EnteredCall(child);
        if (!call) return std::nullopt;
        if (*call == kMark) {
            isCounting = !isCounting;
        } else if (*call >= 0 && isCounting) {
            ++calls;
        }
    }
    return std::nullopt;
}

}  // namespace

void ToggleSystemCallCount() {
    syscall(kMark);
}

std::optional<int64_t> CountSystemCalls(const std::function<bool()> &work) {
    const pid_t child = fork();
    if (child < 0) return std::nullopt;
    if (child == 0) RunTraced(work);
    int status = 0;
    std::optional<int64_t> calls;
    if (waitpid(child, &status, 0) == child && WIFSTOPPED(status) &&
        ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) == 0) {
        calls = Follow(child);
    }
    if (!calls && waitpid(child, nullptr, WNOHANG) == 0) {  // still there
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    return calls;
}

}  // namespace aiplc::bench
