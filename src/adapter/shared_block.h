// SPDX-License-Identifier: BSD-2-Clause
//
// The adapter's hands on the shared block and on the objects beside it.

#ifndef AIPLC_SHARED_BLOCK_H
#define AIPLC_SHARED_BLOCK_H

#include <aiplc/adapter.h>

#include <atomic>

#include "src/adapter/protocol.h"
#include "src/platform/platform.h"

namespace aiplc {

// The mapped block, or null. IPC::Init has checked its size.
inline protocol::SharedBlock *Block(const IPC &ipc) {
    return static_cast<protocol::SharedBlock *>(ipc.sharedMem);
}

// The block's fields are another process's too: each is read and written once, in program order.
template <typename T>
void StoreField(T &field, T value) {
    std::atomic_ref<T>(field).store(value);
}

template <typename T>
T LoadField(T &field) {
    return std::atomic_ref<T>(field).load();
}

// The event's handle, or null, on which every platform call fails cleanly. Allocates nothing.
inline platform::Handle EventHandle(const IPC &ipc, const std::string &name) {
    const auto entry = ipc.eventHandles.find(name);
    return entry == ipc.eventHandles.end() ? nullptr : entry->second;
}

// The last error as log lines print it.
inline int LastErrorForLog() {
    return static_cast<int>(platform::LastError());
}

}  // namespace aiplc

#endif
