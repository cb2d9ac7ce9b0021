// SPDX-License-Identifier: BSD-2-Clause
//
// A detached process is the child of a child that ends as soon as it runs, so that it belongs to
// the system and leaves its starter nothing to wait for. Between fork and exec only
// async-signal-safe calls are made: other threads of the host may have held any lock.
//
// Whether exec succeeded shows when a pipe closes that exec closes too. The child in between makes
// that pipe and waits for it: it has no other threads, one of which might fork a process that keeps
// the pipe open. What it writes to its starter is read when it has ended.

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>

#include "src/platform/linux/descriptor.h"
#include "src/platform/linux/last_error.h"
#include "src/platform/platform.h"

namespace aiplc::platform {

namespace {

// Where the started process keeps its end of the pipe until exec closes it.
constexpr int kReportDescriptor = 3;
// An exec that takes longer, on a file system that does not answer, counts as a success.
constexpr int kExecTimeoutMs = 2000;

// Blocks every signal of this thread, so that no handler of the host runs in the child.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

  private:
    sigset_t m_before{};
};

[[noreturn]] void ReportAndExit(int report, int error) {
    while (write(report, &error, sizeof error) < 0 && errno == EINTR) {
    }
    _exit(1);
}

void CloseFrom(int first) {
    if (close_range(static_cast<unsigned>(first), ~0U, 0) == 0) return;
    // A kernel before 5.9. Descriptors past this bound are rare and those of this library close
    // on exec.
    constexpr rlim_t kBound = 65536;
    rlimit limit{};
    const bool isKnown = getrlimit(RLIMIT_NOFILE, &limit) == 0;
    const auto end = static_cast<int>(isKnown ? std::min(limit.rlim_cur, kBound) : kBound);
    for (int descriptor = first; descriptor < end; ++descriptor)
        close(descriptor);
}

void RestoreSignals() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        sigaction(number, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Runs in the grandchild.
[[noreturn]] void Execute(const char *path, int report) {
    // Out of the way of the standard descriptors first, in case the host has closed some of its
    // own.
    const int safe = fcntl(report, F_DUPFD_CLOEXEC, kReportDescriptor);
    if (safe < 0) ReportAndExit(report, errno);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null < 0) ReportAndExit(safe, errno);
    for (int standard = 0; standard < kReportDescriptor; ++standard) {
        // dup2 onto itself keeps the close-on-exec flag.
        const int done = null == standard ? fcntl(null, F_SETFD, 0) : dup2(null, standard);
        if (done < 0) ReportAndExit(safe, errno);
    }
    if (safe != kReportDescriptor && dup3(safe, kReportDescriptor, O_CLOEXEC) < 0) {
        ReportAndExit(safe, errno);
    }
    CloseFrom(kReportDescriptor + 1);
    setsid();
    RestoreSignals();
    char *arguments[] = {const_cast<char *>(path), nullptr};
    execve(path, arguments, environ);
    ReportAndExit(kReportDescriptor, errno);
}

// The report through the pipe, an errno value, or 0 when it is closed first or nothing comes.
int ReadReport(int pipe, int timeoutMs) {
    pollfd readable{pipe, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&readable, 1, timeoutMs);
    } while (ready < 0 && errno == EINTR);
    int error = 0;
    if (ready <= 0 || read(pipe, &error, sizeof error) != sizeof error) return 0;
    return error;
}

// Runs in the child.
[[noreturn]] void StartAndExit(const char *path, int report) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) ReportAndExit(report, errno);
    const pid_t process = _Fork();
    if (process < 0) ReportAndExit(report, errno);
    if (process == 0) Execute(path, ends[1]);
    close(ends[1]);
    const int error = ReadReport(ends[0], kExecTimeoutMs);
    if (error != 0) ReportAndExit(report, error);
    _exit(0);
}

}  // namespace

bool StartDetachedProcess(const char *path) {
    if (path == nullptr || path[0] == '\0') return Fail(path == nullptr ? EINVAL : ENOENT);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return Fail(errno);
    const Descriptor readEnd(ends[0]);
    const Descriptor writeEnd(ends[1]);

    pid_t child = 0;
    {
        const SignalsBlocked blocked;
        child = _Fork();
        if (child == 0) StartAndExit(path, writeEnd.Get());
    }
    if (child < 0) return Fail(errno);
    // ECHILD: the host ignores SIGCHLD or waits for any child. The child has ended all the same.
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    const int error = ReadReport(readEnd.Get(), 0);
    return error == 0 || Fail(error);
}

}  // namespace aiplc::platform
