// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/job_pool.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/nameless_file.h"

namespace aiplc::tools {
namespace {

constexpr char kErrorMark = 127;
constexpr int kPollMs = 200;
constexpr size_t kFinishedPerRunning = 4;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr int kInterrupted = 130;

void Send(int pipe, const std::string &bytes) {
    // A pipe that nobody reads any more belongs to a parent that is gone.
    while (write(pipe, bytes.data(), bytes.size()) < 0 && errno == EINTR) {
    }
}

int RunWork(const std::function<void()> &work, int reports) {
    std::string message;
    int code = kFailed;
    try {
        work();
        return 0;
    } catch (const UsageError &error) {
        message = error.what();
        code = kWrongUsage;
    } catch (const Interrupted &) {
        return kInterrupted;
    } catch (const std::bad_alloc &) {
        message = "not enough memory";
    } catch (const std::exception &error) {
        message = error.what();
    }
    Send(reports, kErrorMark + message);
    return code;
}

int WaitFor(int process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

}  // namespace

JobPool::~JobPool() {
    for (const auto &[job, child] : m_running)
        kill(child.process, SIGTERM);
    for (const auto &[job, child] : m_running) {
        WaitFor(child.process);
        close(child.reports);
        close(child.output);
    }
    for (const auto &[job, output] : m_finished)
        close(output);
}

void JobPool::Start(size_t job, const Work &work) {
    const int output = OpenNamelessFile();
    std::array<int, 2> reports{};
    if (pipe2(reports.data(), O_CLOEXEC) != 0) {
        close(output);
        throw Failure(std::string("no pipe: ") + strerror(errno));
    }
    std::fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent) _exit(kInterrupted);
        setenv("AIPLC_NAMESPACE", ("aiplc-" + std::to_string(getpid())).c_str(), 1);
        int last = -1;
        const auto report = [&](double share) {
            const auto percent = static_cast<int>(100.0 * share);
            if (percent == last) return;
            last = percent;
            Send(reports[1], std::string(1, static_cast<char>(percent)));
        };
        _exit(RunWork([&] { work(job, output, report); }, reports[1]));
    }
    const int error = errno;
    close(reports[1]);
    if (process < 0) {
        close(reports[0]);
        close(output);
        throw Failure(std::string("no process: ") + strerror(error) + "; give fewer --jobs");
    }
    m_running[job] = Child{process, reports[0], output, 0, {}};
}

bool JobPool::Read(Child &child) {
    std::array<char, 512> bytes{};
    const ssize_t got = read(child.reports, bytes.data(), bytes.size());
    if (got < 0) return errno == EINTR || errno == EAGAIN;
    for (size_t i = 0; i < static_cast<size_t>(got); ++i) {
        if (!child.message.empty() || bytes[i] == kErrorMark) {
            child.message.push_back(bytes[i]);
        } else {
            child.percent = static_cast<unsigned char>(bytes[i]);
        }
    }
    return got > 0;
}

void JobPool::Finish(size_t job) {
    const Child child = m_running.at(job);
    m_running.erase(job);
    const int status = WaitFor(child.process);
    close(child.reports);
    m_finished[job] = child.output;
    if (WIFSIGNALED(status)) {
        ThrowIfInterrupted();
        throw Failure("the process of a call was ended by signal " +
                      std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")");
    }
    const int code = WEXITSTATUS(status);
    if (code == 0) return;
    if (code == kInterrupted) throw Interrupted();
    std::string message(child.message.begin(), child.message.end());
    if (!message.empty()) message.erase(0, 1);
    if (code == kWrongUsage) throw UsageError(message);
    throw Failure(message);
}

void JobPool::WaitForReports() {
    std::vector<pollfd> pipes;
    std::vector<size_t> jobs;
    for (const auto &[job, child] : m_running) {
        pipes.push_back({child.reports, POLLIN, 0});
        jobs.push_back(job);
    }
    const int ready = poll(pipes.data(), pipes.size(), kPollMs);
    ThrowIfInterrupted();
    if (ready <= 0) return;
    for (size_t i = 0; i < pipes.size(); ++i) {
        if (pipes[i].revents != 0 && !Read(m_running.at(jobs[i]))) Finish(jobs[i]);
    }
}

void JobPool::TakeFinished(const Take &take) {
    for (auto next = m_finished.find(m_nextTaken); next != m_finished.end();
         next = m_finished.find(m_nextTaken)) {
        lseek(next->second, 0, SEEK_SET);
        take(next->first, next->second);
        close(next->second);
        m_finished.erase(next);
        ++m_nextTaken;
    }
}

void JobPool::Run(const std::vector<int64_t> &costs, const Work &work, const Take &take,
                  Progress &progress) {
    m_nextTaken = 0;
    int64_t done = 0;
    size_t started = 0;
    std::vector<int64_t> left = costs;  // of jobs that have not finished
    while (m_nextTaken < costs.size()) {
        while (started < costs.size() && m_running.size() < m_atOnce &&
               started < m_nextTaken + m_atOnce * kFinishedPerRunning)
            Start(started++, work);
        WaitForReports();
        int64_t underWay = 0;
        for (const auto &[job, child] : m_running)
            underWay += costs[job] * child.percent / 100;
        for (const auto &[job, output] : m_finished)
            done += std::exchange(left[job], 0);
        TakeFinished(take);
        progress.Show(done + underWay);
    }
}

}  // namespace aiplc::tools
