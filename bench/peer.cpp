// SPDX-License-Identifier: BSD-2-Clause

#include "bench/peer.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>

namespace aiplc::bench {

namespace {

[[noreturn]] void Fail(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

Peer::Peer(const std::function<void()> &body) : m_id(fork()) {
    if (m_id < 0) Fail("fork");
    if (m_id > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    body();
    _exit(0);
}

Peer::~Peer() {
    kill(m_id, SIGKILL);
    while (waitpid(m_id, nullptr, 0) < 0 && errno == EINTR) {
    }
}

OneCore::OneCore() {
    if (sched_getaffinity(0, sizeof m_before, &m_before) != 0) Fail("sched_getaffinity");
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0) Fail("sched_setaffinity");
}

OneCore::~OneCore() {
    sched_setaffinity(0, sizeof m_before, &m_before);
}

void Spin() {
    for (volatile unsigned turns = 0;;)
        turns = turns + 1;
}

void UseNewNamespace() {
    static int count = 0;
    const std::string name = "bench-" + std::to_string(getpid()) + "-" + std::to_string(++count);
    setenv("AIPLC_NAMESPACE", name.c_str(), 1);
}

}  // namespace aiplc::bench
