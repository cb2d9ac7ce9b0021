// SPDX-License-Identifier: BSD-2-Clause

#include "hostile_platform.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "adapter/protocol.h"
#include "arbitrary.h"
#include "platform/platform.h"

namespace aiplc::fuzz {
namespace {

using protocol::SharedBlock;

struct Object {
    bool isMutex;
};

FuzzedDataProvider *input = nullptr;
uint8_t *view = nullptr;  // of the block, as long as it is mapped
size_t viewBytes = 0;
int mutexDepth = 0;
int64_t clock = 0;

bool Fails() {
    return input->ConsumeIntegral<uint8_t>() == 0xFF;
}

// The other side writes whatever it likes into the block.
void Meddle() {
    if (view == nullptr || viewBytes < sizeof(SharedBlock)) return;
    auto &block = *reinterpret_cast<SharedBlock *>(view);
    switch (input->ConsumeIntegralInRange<int>(0, 7)) {
        case 1:
        case 2:
            block.msgId = input->ConsumeIntegralInRange<uint32_t>(0, 5);
            break;
        case 3:
            block.retCode = input->ConsumeIntegral<int32_t>();
            break;
        case 4:
            FillAudio(*input, block.AudioIn);
            break;
        case 5:
            FillAudio(*input, block.AudioOut);
            break;
        case 6: {
            const auto at = input->ConsumeIntegralInRange<size_t>(0, viewBytes - 1);
            const auto most = input->ConsumeIntegralInRange<size_t>(0, viewBytes - at);
            (void)input->ConsumeData(view + at, most);
            break;
        }
        default:
            break;
    }
}

platform::Handle Open(bool isMutex) {
    return Fails() ? nullptr : new Object{isMutex};
}

// A call on a handle: null fails, the rest as the input has it.
bool Reaches(platform::Handle handle) {
    Meddle();
    return handle != nullptr && !Fails();
}

}  // namespace

HostilePlatform::HostilePlatform(FuzzedDataProvider &data) {
    input = &data;
    mutexDepth = 0;
}
HostilePlatform::~HostilePlatform() {
    input = nullptr;
}
int HostilePlatform::MutexDepth() {
    return mutexDepth;
}

}  // namespace aiplc::fuzz

namespace aiplc::platform {

using namespace aiplc::fuzz;

uint32_t LastError() {
    return 5;
}

Handle OpenMapping(const char *) {
    return input->ConsumeBool() ? nullptr : Open(false);
}
Handle CreateMapping(const char *, size_t) {
    return Open(false);
}
void *MapView(Handle, size_t *size) {
    Require(view == nullptr);
    if (Fails()) return nullptr;
    viewBytes = sizeof(SharedBlock);
    if (Fails()) viewBytes = input->ConsumeIntegralInRange<size_t>(1, 2 * viewBytes);
    *size = viewBytes;
    return view = new uint8_t[viewBytes]{};
}
bool UnmapView(void *mapped) {
    Require(mapped == view && view != nullptr);
    delete[] view;
    view = nullptr;
    return true;
}
Handle CreateNamedEvent(const char *) {
    return Open(false);
}
Handle CreateNamedMutex(const char *) {
    return Open(true);
}
bool CloseHandle(Handle handle) {
    delete static_cast<Object *>(handle);
    return handle != nullptr;
}

bool SetEvent(Handle event) {
    return Reaches(event);
}
bool ResetEvent(Handle event) {
    return Reaches(event);
}
bool ReleaseMutex(Handle mutex) {
    Require(static_cast<Object *>(mutex)->isMutex && mutexDepth > 0);
    --mutexDepth;
    return Reaches(mutex);
}
// At the end of the input every wait fails, so that whoever waits comes to an end too.
uint32_t Wait(Handle handle, uint32_t) {
    static constexpr uint32_t kOutcomes[] = {kWaitSignalled, kWaitSignalled, kWaitAbandoned,
                                             kWaitTimeout,   kWaitFailed,    77};
    Meddle();
    if (handle == nullptr || input->remaining_bytes() == 0) return kWaitFailed;
    const uint32_t outcome = input->PickValueInArray(kOutcomes);
    const bool isTaken = outcome == kWaitSignalled || outcome == kWaitAbandoned;
    if (isTaken && static_cast<Object *>(handle)->isMutex) ++mutexDepth;
    return outcome;
}

bool StartDetachedProcess(const char *) {
    return !Fails();
}
FindStatus FindProcess(const char *, uint32_t *id) {
    *id = 0;
    if (Fails()) return FindStatus::failed;
    *id = input->ConsumeIntegralInRange<uint32_t>(0, 3);
    return *id == 0 ? FindStatus::absent : FindStatus::found;
}
uint32_t ExecutablePath(char *buffer, uint32_t capacity) {
    constexpr std::string_view kPath = "/host/engine";
    const auto length = input->ConsumeIntegralInRange<uint32_t>(0, capacity - 1);
    for (uint32_t i = 0; i < length; ++i)
        buffer[i] = kPath[i % kPath.size()];
    buffer[length] = '\0';
    return length;
}

void Sleep(uint32_t) {}
int64_t PerformanceCounter() {
    clock += input == nullptr ? 1 : input->ConsumeIntegral<uint8_t>();
    return clock;
}
int64_t PerformanceFrequency() {
    return 1000;
}

void JoinAsServer() {}
bool WaitHostsGone() {
    return false;
}

}  // namespace aiplc::platform
