// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_JOB_POOL_H
#define AIPLC_TOOLS_JOB_POOL_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "tools/shell/progress.h"

namespace aiplc::tools {

// Runs jobs in child processes of this one, several at a time: a worker is shared by all hosts of a
// namespace, and a namespace is a process's, so every child gets its own ("aiplc-" and its process
// number). What a job needed is gone with its process. To be used while this process has one
// thread.
//
// State of a job: waiting -> running (a child) -> finished (its output is there) -> taken, in the
// order of the jobs. A job starts only when few finished ones wait to be taken.
class JobPool {
  public:
    // In the child: does job number job and writes what came of it to output, a file. report takes
    // the share done, 0..1. What it throws Run throws: Failure, UsageError, Interrupted.
    using Work = std::function<void(size_t job, int output, const std::function<void(double)> &)>;
    // In this process: output is at its beginning and is closed afterwards.
    using Take = std::function<void(size_t job, int output)>;

    // atOnce: running jobs, 1 or more.
    explicit JobPool(size_t atOnce) : m_atOnce(atOnce) {}
    // Ends the children that still run and waits for them.
    ~JobPool();
    JobPool(const JobPool &) = delete;
    JobPool &operator=(const JobPool &) = delete;

    // costs: of each job, in any unit; what the progress is counted in.
    void Run(const std::vector<int64_t> &costs, const Work &work, const Take &take,
             Progress &progress);

  private:
    struct Child {
        int process = -1;
        int reports = -1;  // pipe: shares in 1/100, then, after kErrorMark, a message
        int output = -1;
        int percent = 0;
        std::vector<char> message;
    };

    void Start(size_t job, const Work &work);
    void WaitForReports();
    // False when the child has ended.
    static bool Read(Child &child);
    void Finish(size_t job);
    void TakeFinished(const Take &take);

    size_t m_atOnce;
    std::map<size_t, Child> m_running;
    std::map<size_t, int> m_finished;  // outputs
    size_t m_nextTaken = 0;
};

}  // namespace aiplc::tools

#endif
