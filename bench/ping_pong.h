// SPDX-License-Identifier: BSD-2-Clause
//
// Two processes that wake each other in turn: what any exchange between processes costs at least.

#ifndef AIPLC_BENCH_PING_PONG_H
#define AIPLC_BENCH_PING_PONG_H

#include <cstdint>
#include <functional>

#include "bench/peer.h"
#include "worker/service/service.h"

namespace aiplc::bench {

// Shared memory of a word, without a name.
class SharedWord {
  public:
    SharedWord();  // throws std::system_error
    ~SharedWord();
    SharedWord(const SharedWord &) = delete;
    SharedWord &operator=(const SharedWord &) = delete;

    uint32_t &Word() const { return *m_word; }

  private:
    uint32_t *m_word;
};

// On a bare futex(2): two system calls a side.
class FutexPingPong {
  public:
    // work is done in the other process, before each answer.
    explicit FutexPingPong(const std::function<void()> &work = [] {});
    void RoundTrip();

  private:
    SharedWord m_word;
    Peer m_peer;
};

// The same on two events of the platform seam.
class EventPingPong {
  public:
    EventPingPong();
    void RoundTrip();

  private:
    Peer m_peer;
    worker::UniqueHandle m_there;
    worker::UniqueHandle m_back;
};

}  // namespace aiplc::bench

#endif
