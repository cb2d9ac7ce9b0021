// SPDX-License-Identifier: BSD-2-Clause
//
// A worker that writes anything into the shared block at any time, and a system on which any call
// fails: the adapter returns, gives the mutex and all handles back, and fills no more than the
// caller's record.

#include <aiplc/adapter.h>

#include <algorithm>
#include <memory>

#include "fuzz/arbitrary.h"
#include "fuzz/hostile_platform.h"

namespace {

using aiplc::fuzz::Require;

constexpr int kMostCalls = 64;
constexpr uint8_t kUntouched = 0xA5;

void Request(AiplcAdapter &adapter, FuzzedDataProvider &data) {
    const auto record = std::make_unique<InoutDetail>();
    record->inferArg = data.ConsumeIntegral<uint16_t>();
    std::ranges::fill(record->AudioOut, kUntouched);
    const int result = adapter.Process(*record, data.ConsumeIntegral<int>());
    Require(aiplc::platform::fake->mutexDepth == 0);
    if (!adapter.workerRunning) {
        Require(result == 201 &&
                std::ranges::count(record->AudioOut, kUntouched) == std::ssize(record->AudioOut));
    }
}

// Create and Init come once before each Delete, as the interface has it.
void Call(AiplcAdapter &adapter, FuzzedDataProvider &data) {
    switch (data.ConsumeIntegralInRange<int>(0, 7)) {
        case 0:
            if (adapter.m_ipc.inferMutex == nullptr) (void)adapter.Create();
            break;
        case 1:
            if (adapter.m_ipc.inferMutex == nullptr) (void)adapter.Init();
            break;
        case 2:
            (void)adapter.Delete();
            break;
        case 3:
            for (const auto &[name, handle] : adapter.m_ipc.eventHandles)
                (void)adapter.m_ipc.ReceiveEvent(handle, data.ConsumeIntegral<int>());
            break;
        default:
            Request(adapter, data);
            break;
    }
}

void Ignore(const char *, int32_t, const char *, ...) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    AiplcRegLog(Ignore);
    FuzzedDataProvider data(bytes, size);
    const aiplc::fuzz::HostilePlatform platform(data);
    AiplcAdapter adapter;
    if (data.ConsumeBool() && adapter.Create() == 0) (void)adapter.Init();
    for (int calls = 0; calls < kMostCalls && data.remaining_bytes() > 0; ++calls)
        Call(adapter, data);
    (void)adapter.Delete();
    return 0;
}
