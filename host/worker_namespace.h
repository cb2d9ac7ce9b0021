// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_WORKER_NAMESPACE_H
#define AIPLC_HOST_WORKER_NAMESPACE_H

#include <mutex>

namespace aiplc::host {

// A channel with a worker needs a namespace of its own: in a shared one requests get each other's
// answers, and the channel that ends first takes the worker away. Library and worker read the name
// from the environment while the channel is set up. As long as this object lives AIPLC_NAMESPACE
// has a value that no other channel has, unless the user has set it; one object at a time, others
// wait. Other threads must not use the environment meanwhile (setenv(3)).
class WorkerNamespace {
  public:
    WorkerNamespace();
    ~WorkerNamespace();
    WorkerNamespace(const WorkerNamespace &) = delete;
    WorkerNamespace &operator=(const WorkerNamespace &) = delete;

  private:
    std::unique_lock<std::mutex> m_turn;
    bool m_isOwn;
};

}  // namespace aiplc::host

#endif
