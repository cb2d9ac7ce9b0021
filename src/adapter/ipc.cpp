// SPDX-License-Identifier: BSD-2-Clause
//
// The shared block and the four events that connect library and worker.

#include <aiplc/adapter.h>

#include <algorithm>
#include <utility>

#include "src/adapter/shared_block.h"

namespace {

namespace platform = aiplc::platform;
namespace protocol = aiplc::protocol;

constexpr char kSourceUnit[] = "IPC";

constexpr int kTimedOut = 101;
constexpr int kWaitBroken = 104;
constexpr int kAbandoned = 105;

bool IsUsable(platform::Handle handle) {
    return handle != nullptr && handle != platform::InvalidHandle();
}

platform::Handle OpenOrCreateMapping() {
    if (const platform::Handle existing = platform::OpenMapping(protocol::kSharedMemName);
        existing != nullptr) {
        AudAiplcLog(kSourceUnit, __LINE__, "memroy-mapped file exists.\n");
        return existing;
    }
    AudAiplcLog(kSourceUnit, __LINE__, "memroy-mapped file doesn't exist, creating a new one.\n");
    const platform::Handle created =
        platform::CreateMapping(protocol::kSharedMemName, sizeof(protocol::SharedBlock));
    if (created == nullptr) {
        AudAiplcLog(kSourceUnit, __LINE__, "Create shared mem failed!\n");
    }
    return created;
}

// A view of the whole block, or null. The other side may have made the mapping, and with any size.
void *MapBlock(platform::Handle mapping) {
    size_t size = 0;
    void *view = platform::MapView(mapping, &size);
    if (view == nullptr) {
        AudAiplcLog(kSourceUnit, __LINE__, "MapViewOfFile failed: err = %d\n",
                    aiplc::LastErrorForLog());
        return nullptr;
    }
    if (size < sizeof(protocol::SharedBlock)) {
        AudAiplcLog(kSourceUnit, __LINE__,
                    "Shared mem is too small: %zu bytes, %zu bytes are needed\n", size,
                    sizeof(protocol::SharedBlock));
        platform::UnmapView(view);
        return nullptr;
    }
    return view;
}

}  // namespace

IPC::IPC() = default;

int IPC::Init() {
    sharedMemHandle = OpenOrCreateMapping();
    if (sharedMemHandle == nullptr) {
        sharedMem = nullptr;
        return -1;
    }
    sharedMem = MapBlock(sharedMemHandle);
    if (sharedMem == nullptr) {
        platform::CloseHandle(sharedMemHandle);
        sharedMemHandle = nullptr;
        return -1;
    }
    const std::pair<std::string &, const char *> events[] = {
        {workerReceiverName, protocol::kWorkerReceiverName},
        {adapterReceiverName, protocol::kAdapterReceiverName},
        {processStartedName, protocol::kProcessStartedName},
        {inputReadyName, protocol::kInputReadyName},
    };
    for (const auto &[field, name] : events) {
        field = name;
        // The slot first: should the map find no memory, no handle is lost.
        platform::Handle &slot = eventHandles[field];
        slot = platform::CreateNamedEvent(name);
        if (!IsUsable(slot)) {
            initialized = false;
            AudAiplcLog(kSourceUnit, __LINE__, "CreateEvent failed: eventName = %s\n", name);
            return -1;
        }
    }
    initialized = true;
    return 0;
}

int IPC::ReceiveEvent(void *handle, int timeoutMs) {
    if (handle == platform::InvalidHandle()) {
        AudAiplcLog(kSourceUnit, __LINE__, "Invalid handle!\n");
        return -1;
    }
    switch (platform::Wait(handle, static_cast<uint32_t>(std::max(timeoutMs, 0)))) {
        case platform::kWaitSignalled:
            return 0;
        case platform::kWaitTimeout:
            return kTimedOut;
        case platform::kWaitFailed:
            return kWaitBroken;
        case platform::kWaitAbandoned:
            return kAbandoned;
        default:
            return -1;
    }
}

IPC::~IPC() {
    AudAiplcLog(kSourceUnit, __LINE__, "IPC destructor was called!\n");
    if (sharedMem != nullptr) {
        platform::UnmapView(sharedMem);
        sharedMem = nullptr;
        AudAiplcLog(kSourceUnit, __LINE__, "Shared mem was released!\n");
    }
    if (sharedMemHandle != nullptr) {
        platform::CloseHandle(sharedMemHandle);
        sharedMemHandle = nullptr;
        AudAiplcLog(kSourceUnit, __LINE__, "SharedMemHandle was closed!\n");
    }
    for (const auto &[name, handle] : eventHandles) {
        if (IsUsable(handle)) {
            platform::CloseHandle(handle);
        }
    }
    AudAiplcLog(kSourceUnit, __LINE__, "IPC destruction was completed!\n");
}
