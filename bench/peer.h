// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_PEER_H
#define AIPLC_BENCH_PEER_H

#include <sched.h>
#include <sys/types.h>

#include <functional>

namespace aiplc::bench {

// A process that runs a function until it returns or until this object ends. Fork it before this
// process opens handles that the peer must not keep alive.
class Peer {
  public:
    explicit Peer(const std::function<void()> &body);
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

  private:
    pid_t m_id;
};

// Keeps this thread, and the processes that it starts meanwhile, on the core where it runs now.
class OneCore {
  public:
    OneCore();
    ~OneCore();
    OneCore(const OneCore &) = delete;
    OneCore &operator=(const OneCore &) = delete;

  private:
    cpu_set_t m_before{};
};

// Uses up all the time that it gets.
void Spin();

// From here on this process, and those that it starts, open named objects of a namespace that
// nobody else uses.
void UseNewNamespace();

}  // namespace aiplc::bench

#endif
