// SPDX-License-Identifier: BSD-2-Clause

#include "tests/support/fake_platform.h"

#include <algorithm>
#include <cstdlib>

namespace aiplc::platform {

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

Handle Open(const char *call, const char *name) {
    if (fake->Answer(call, name, 1) == 0) return nullptr;
    static std::uintptr_t last = 0;                        // no handle comes back
    const auto handle = reinterpret_cast<Handle>(++last);  // NOLINT(performance-no-int-to-ptr)
    fake->objects[handle] = name;
    return handle;
}

const std::string &NameOf(Handle handle) {
    const auto object = fake->objects.find(handle);
    Require(object != fake->objects.end());
    return object->second;
}

bool Succeeds(const char *call, Handle handle) {
    return handle != nullptr && fake->Answer(call, NameOf(handle), 1) != 0;
}

}  // namespace

uint32_t LastError() {
    return 5;
}

Handle OpenMapping(const char *name) {
    return Open("OpenMapping", name);
}
Handle CreateMapping(const char *name, size_t) {
    return Open("CreateMapping", name);
}
void *MapView(Handle mapping, size_t *size) {
    Require(NameOf(mapping) == protocol::kSharedMemName && fake->view == nullptr);
    fake->viewBytes = *size =
        static_cast<size_t>(fake->Answer("MapView", "", sizeof(protocol::SharedBlock)));
    if (*size > 0) fake->view = std::make_unique<uint8_t[]>(*size);
    return fake->view.get();
}
bool UnmapView(void *view) {
    Require(view != nullptr && view == fake->view.get());
    fake->view.reset();
    return true;
}
Handle CreateNamedEvent(const char *name) {
    return Open("CreateEvent", name);
}
Handle CreateNamedMutex(const char *name) {
    return Open("CreateMutex", name);
}
bool CloseHandle(Handle handle) {
    if (handle == nullptr) return false;
    Require(fake->objects.erase(handle) == 1);
    return true;
}

bool SetEvent(Handle event) {
    return Succeeds("SetEvent", event);
}
bool ResetEvent(Handle event) {
    return Succeeds("ResetEvent", event);
}
bool ReleaseMutex(Handle mutex) {
    Require(NameOf(mutex) == protocol::kInferMutexName && fake->mutexDepth-- > 0);
    return Succeeds("Release", mutex);
}
uint32_t Wait(Handle handle, uint32_t timeoutMs) {
    if (handle == nullptr) return kWaitFailed;
    const std::string &name = NameOf(handle);
    fake->waitMs = timeoutMs;
    const auto outcome = static_cast<uint32_t>(fake->Answer("Wait", name, kWaitSignalled));
    const bool isTaken = outcome == kWaitSignalled || outcome == kWaitAbandoned;
    if (isTaken && name == protocol::kInferMutexName) ++fake->mutexDepth;
    return outcome;
}

bool StartDetachedProcess(const char *path) {
    return fake->Answer("Start", path, 1) != 0;
}
FindStatus FindProcess(const char *, uint32_t *id) {
    const int64_t answer = fake->Answer("FindProcess", "", 4711);
    const bool isFound = answer != 0 && answer != FakePlatform::kNoProcessList;
    *id = isFound ? static_cast<uint32_t>(answer) : 0;
    if (isFound) return FindStatus::found;
    return answer == 0 ? FindStatus::absent : FindStatus::failed;
}
uint32_t ExecutablePath(char *buffer, uint32_t capacity) {
    constexpr std::string_view kPath = "/host/engine";  // again and again, where it is longer
    const int64_t answer = fake->Answer("ExecutablePath", "", int64_t{kPath.size()});
    const auto length = std::min(static_cast<uint32_t>(answer), capacity - 1);
    for (uint32_t i = 0; i < length; ++i)
        buffer[i] = kPath[i % kPath.size()];
    buffer[length] = '\0';
    return length;
}

void Sleep(uint32_t) {}
int64_t PerformanceCounter() {
    return fake->Answer("PerformanceCounter", "", 0);
}
int64_t PerformanceFrequency() {
    return fake->Answer("PerformanceFrequency", "", 1'000'000);
}

void JoinAsServer() {}
bool WaitHostsGone() {
    return false;
}

}  // namespace aiplc::platform
