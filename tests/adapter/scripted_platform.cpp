// SPDX-License-Identifier: BSD-2-Clause

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "fixtures.h"
#include "platform/platform.h"

namespace aiplc::platform {

namespace {

int64_t Record(const std::string &call, int64_t usual = 1) {
    std::vector<std::string> &calls = scripted.calls;
    calls.push_back(call);
    auto answer = scripted.answers.find({call, std::count(calls.begin(), calls.end(), call)});
    if (answer == scripted.answers.end()) answer = scripted.answers.find({call, 0});
    if (answer == scripted.answers.end()) return usual;
    if (answer->second == kOutOfMemory) throw std::bad_alloc();
    return answer->second;
}

bool Succeeds(const char *verb, Handle name) {
    return Record(std::string(verb) + static_cast<char *>(name)) != 0;
}

// A handle is its object's name, a constant of the protocol.
Handle Open(const char *verb, const char *name) {
    char *const handle = const_cast<char *>(name);
    if (!Succeeds(verb, handle)) return nullptr;
    ++scripted.held;
    return handle;
}

}  // namespace

uint32_t LastError() {
    return 5;
}

Handle OpenMapping(const char *name) {
    return Open("OpenMapping ", name);
}
Handle CreateMapping(const char *name, size_t) {
    return Open("CreateMapping ", name);
}
void *MapView(Handle, size_t *size) {
    *size = static_cast<size_t>(Record("MapView", sizeof scripted.block));
    scripted.held += *size == 0 ? 0 : 1;
    return *size == 0 ? nullptr : &scripted.block;
}
bool UnmapView(void *) {
    return scripted.held-- > 0;
}
Handle CreateNamedEvent(const char *name) {
    return Open("CreateEvent ", name);
}
Handle CreateNamedMutex(const char *name) {
    return Open("CreateMutex ", name);
}
bool CloseHandle(Handle) {
    return scripted.held-- > 0;
}

bool SetEvent(Handle event) {
    return Succeeds("SetEvent ", event);
}
bool ResetEvent(Handle event) {
    return Succeeds("ResetEvent ", event);
}
bool ReleaseMutex(Handle mutex) {
    --scripted.mutexDepth;
    return Succeeds("Release ", mutex);
}
uint32_t Wait(Handle handle, uint32_t timeoutMs) {
    const std::string name = static_cast<char *>(handle);
    const int64_t outcome = Record("Wait " + name + ' ' + std::to_string(timeoutMs), 0);
    const bool isTaken = outcome == kWaitSignalled || outcome == kWaitAbandoned;
    if (isTaken && name == protocol::kInferMutexName) ++scripted.mutexDepth;
    return static_cast<uint32_t>(outcome);
}

bool StartDetachedProcess(const char *path) {
    return Record(std::string("Start ") + path) != 0;
}
FindStatus FindProcess(const char *, uint32_t *id) {
    *id = static_cast<uint32_t>(Record("FindProcess", 4711));
    if (*id == 0) return FindStatus::absent;
    return *id == kNoProcessList ? FindStatus::failed : FindStatus::found;
}
uint32_t ExecutablePath(char *buffer, uint32_t capacity) {
    if (Record("ExecutablePath") == 0) return 0;
    return static_cast<uint32_t>(std::snprintf(buffer, capacity, "/host/engine"));
}

void Sleep(uint32_t) {}
int64_t PerformanceCounter() {
    return Record("PerformanceCounter", 0);
}
int64_t PerformanceFrequency() {
    return Record("PerformanceFrequency", 1'000'000);
}

int CopyBounded(void *destination, size_t, const void *source, size_t count) {
    const auto error = static_cast<int>(Record("CopyBounded " + std::to_string(count), 0));
    if (error == 0) std::memcpy(destination, source, count);
    return error;
}
int FillBounded(void *destination, size_t, int value, size_t count) {
    std::memset(destination, value, count);
    return 0;
}
int FormatBounded(char *buffer, size_t size, size_t, const char *format, va_list arguments) {
    return std::vsnprintf(buffer, size, format, arguments);
}

}  // namespace aiplc::platform
