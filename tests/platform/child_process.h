// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TEST_CHILD_PROCESS_H
#define AIPLC_TEST_CHILD_PROCESS_H

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace aiplc::platform {

// One end of a line between a test and its child: each Tell lets one Await of the other side pass.
struct Line {
    int end;
    void Tell() const { (void)!write(end, "!", 1); }
    bool Await() const {
        char mark = 0;
        return read(end, &mark, 1) == 1;
    }
};

// A real process that runs a function and exits with its result. Start it before the test opens a
// handle, or while only handles it may keep alive are open: a forked child inherits them.
class Child {
  public:
    template <typename Body>
    explicit Child(Body body) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
        m_id = fork();
        if (m_id == 0) _exit(close(ends[0]) + body(Line{ends[1]}));
        close(ends[1]);
        line.end = ends[0];
    }
    ~Child() {
        if (m_id > 0) Kill();
        close(line.end);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    int Join() {
        int status = -1;
        waitpid(m_id, &status, 0);
        m_id = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void Kill() {
        kill(m_id, SIGKILL);
        Join();
    }
    void Stop() const {
        kill(m_id, SIGSTOP);
        waitpid(m_id, nullptr, WUNTRACED);
    }
    // Returns once the child, whose next step is a wait, sleeps in the kernel.
    void AwaitAsleep() const {
        for (char state = 'R'; state != 'S'; usleep(200)) {
            std::ifstream file("/proc/" + std::to_string(m_id) + "/stat");
            const std::string text(std::istreambuf_iterator<char>(file), {});
            state = text[text.rfind(") ") + 2];
        }
    }

    Line line{-1};

  private:
    pid_t m_id = -1;
};

}  // namespace aiplc::platform

#endif
