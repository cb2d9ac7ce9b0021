// SPDX-License-Identifier: BSD-2-Clause

#include "host/worker_namespace.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace aiplc::host {
namespace {

constexpr char kVariable[] = "AIPLC_NAMESPACE";

std::mutex turns;
unsigned channels = 0;  // guarded by turns

bool IsSet() {
    const char *name = std::getenv(kVariable);
    return name != nullptr && name[0] != '\0';
}

}  // namespace

WorkerNamespace::WorkerNamespace() : m_turn(turns), m_isOwn(!IsSet()) {
    if (!m_isOwn) return;
    const std::string name =
        "channel-" + std::to_string(getpid()) + "-" + std::to_string(++channels);
    setenv(kVariable, name.c_str(), 1);
}

WorkerNamespace::~WorkerNamespace() {
    if (m_isOwn) unsetenv(kVariable);
}

}  // namespace aiplc::host
