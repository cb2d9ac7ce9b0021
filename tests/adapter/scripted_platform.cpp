// SPDX-License-Identifier: BSD-2-Clause

#include "scripted_platform.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <set>

#include "platform/platform.h"

ScriptedPlatform scripted;

namespace aiplc::platform {

namespace {

uint32_t Answer(const std::string &call, uint32_t usual) {
    std::deque<uint32_t> &answers = scripted.answers[call];
    if (answers.empty()) return usual;
    const uint32_t answer = answers.front();
    answers.pop_front();
    if (answer == ScriptedPlatform::kOutOfMemory) throw std::bad_alloc();
    return answer;
}

uint32_t Record(const std::string &call, uint32_t usual = 1) {
    scripted.calls.push_back(call);
    return Answer(call, usual);
}

// A handle is its object's name.
Handle Create(const char *verb, const std::string &name) {
    static std::set<std::string> names;
    if (Record(verb + name) == 0) return nullptr;
    return const_cast<std::string *>(&*names.insert(name).first);
}

std::string Name(Handle handle) {
    return handle == nullptr ? "null" : *static_cast<std::string *>(handle);
}

}  // namespace

uint32_t LastError() {
    return 5;
}

Handle OpenMapping(const char *name) {
    return Create("OpenMapping ", name);
}
Handle CreateMapping(const char *name, size_t) {
    return Create("CreateMapping ", name);
}
void *MapView(Handle, size_t *size) {
    *size = scripted.viewBytes;
    return Record("MapView") != 0 ? &scripted.block : nullptr;
}
bool UnmapView(void *) {
    return Record("UnmapView") != 0;
}

Handle CreateNamedEvent(const char *name) {
    return Create("CreateEvent ", name);
}
Handle CreateNamedMutex(const char *name) {
    return Create("CreateMutex ", name);
}
bool SetEvent(Handle event) {
    return Record("SetEvent " + Name(event)) != 0;
}
bool ResetEvent(Handle event) {
    return Record("ResetEvent " + Name(event)) != 0;
}
bool CloseHandle(Handle handle) {
    return Record("Close " + Name(handle)) != 0;
}

bool ReleaseMutex(Handle mutex) {
    --scripted.mutexDepth;
    return Record("Release " + Name(mutex)) != 0;
}

uint32_t Wait(Handle handle, uint32_t timeoutMs) {
    const std::string name = Name(handle);
    const uint32_t outcome =
        Record("Wait " + name + " " + std::to_string(timeoutMs), kWaitSignalled);
    const bool taken = outcome == kWaitSignalled || outcome == kWaitAbandoned;
    if (name == protocol::kInferMutexName && taken) ++scripted.mutexDepth;
    return outcome;
}

bool StartDetachedProcess(const char *path) {
    return Record(std::string("Start ") + path) != 0;
}

FindStatus FindProcess(const char *, uint32_t *id) {
    if (scripted.processIds.empty()) return FindStatus::failed;
    *id = scripted.processIds.front();
    scripted.processIds.pop_front();
    return *id == 0 ? FindStatus::absent : FindStatus::found;
}

uint32_t ExecutablePath(char *buffer, uint32_t capacity) {
    return static_cast<uint32_t>(
        std::snprintf(buffer, capacity, "%chost%cengine", kPathSeparator, kPathSeparator));
}

void Sleep(uint32_t milliseconds) {
    Record("Sleep " + std::to_string(milliseconds));
}

int64_t PerformanceCounter() {
    if (scripted.counter.empty()) return 0;
    const int64_t reading = scripted.counter.front();
    if (scripted.counter.size() > 1) scripted.counter.pop_front();
    return reading;
}
int64_t PerformanceFrequency() {
    return scripted.frequency;
}

int CopyBounded(void *destination, size_t, const void *source, size_t count) {
    const uint32_t error = Answer("CopyBounded " + std::to_string(count), 0);
    if (error == 0) std::memcpy(destination, source, count);
    return static_cast<int>(error);
}
int FillBounded(void *destination, size_t, int value, size_t count) {
    std::memset(destination, value, count);
    return 0;
}
int FormatBounded(char *buffer, size_t size, size_t, const char *format, va_list arguments) {
    return std::vsnprintf(buffer, size, format, arguments);
}

}  // namespace aiplc::platform
