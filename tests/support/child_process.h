// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_CHILD_PROCESS_H
#define AIPLC_TESTS_CHILD_PROCESS_H

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>

namespace aiplc::platform {

// One end of a line between a test and its child: each Tell lets one Await of the other side pass.
struct Line {
    int end = -1;
    bool Tell() const { return send(end, "!", 1, MSG_NOSIGNAL) == 1; }
    bool Await() const {
        char mark = 0;
        return read(end, &mark, 1) == 1;
    }
};

// A real process that runs a function and exits with its result. The constructor returns once the
// child has told that it is ready (or has ended, or executes another program). Start it before the
// test opens a handle: a forked child keeps what it inherits alive.
class Child {
  public:
    template <typename Body>
    explicit Child(Body body) {
        int ends[2] = {-1, -1};
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
        id = fork();
        if (id == 0) _exit(close(ends[0]) + body(Line{ends[1]}));
        close(ends[1]);
        line.end = ends[0];
        isReady = line.Await();
    }
    ~Child() {
        Kill();
        close(line.end);
    }
    Child(const Child &) = delete;

    int Join() {
        int status = -1;
        waitpid(id, &status, 0);
        id = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void Kill() {
        if (id <= 0) return;  // not a process: every one
        kill(id, SIGKILL);
        Join();
    }
    // Returns once the child, whose next step is a wait, sleeps in the kernel, or has ended.
    void AwaitAsleep() const {
        for (std::string state; state != "S" && state != "Z"; usleep(200))
            std::ifstream("/proc/" + std::to_string(id) + "/stat") >> state >> state >> state;
    }

    Line line;
    pid_t id = -1;
    bool isReady = false;
};

}  // namespace aiplc::platform

#endif
