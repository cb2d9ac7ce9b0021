// SPDX-License-Identifier: BSD-2-Clause
//
// The platform's own named objects, in memory and files that another process of the user overwrites
// at any time: calls return, a mutex is given back by its owner only, and what is left in the end
// is nothing.

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <thread>

#include "fuzz/arbitrary.h"
#include "src/platform/linux/named_object.h"

namespace {

using namespace aiplc::platform;
using aiplc::fuzz::Require;

constexpr int kMostCalls = 48;
constexpr std::array<const char *, 3> kNames = {"First", "Second", "Third"};

// A handle and how often this thread owns the mutex behind it.
struct Held {
    Handle handle = nullptr;
    void *view = nullptr;
    size_t viewBytes = 0;
    uint32_t depth = 0;
};

bool HasNoListedLock() {
    robust_list_head *head = nullptr;
    size_t bytes = 0;
    return syscall(SYS_get_robust_list, 0, &head, &bytes) == 0 && head->list.next == &head->list &&
           head->list_op_pending == nullptr;
}

void Open(Held &held, const char *name, FuzzedDataProvider &data) {
    switch (data.ConsumeIntegralInRange<int>(0, 3)) {
        case 0:
            held.handle = CreateNamedEvent(name);
            break;
        case 1:
            held.handle = CreateMapping(name, data.ConsumeIntegralInRange<size_t>(1, 10000));
            if (held.handle != nullptr) held.view = MapView(held.handle, &held.viewBytes);
            break;
        default:
            held.handle = CreateNamedMutex(name);
            break;
    }
}

void Close(Held &held) {
    if (held.view != nullptr) Require(UnmapView(held.view));
    if (held.handle != nullptr) Require(CloseHandle(held.handle));
    held = {};
}

// The other process: words of the memory, the file's content or length.
void Meddle(const Held &held, FuzzedDataProvider &data) {
    const NamedObject &object = *ObjectOf(held.handle);
    auto *end = reinterpret_cast<uint32_t *>(object.memory.End());
    const auto words = static_cast<size_t>(end - static_cast<uint32_t *>(object.memory.Data()));
    const int file = object.file.Get();
    switch (data.ConsumeIntegralInRange<int>(0, 5)) {
        case 0:
            (void)!ftruncate(file, data.ConsumeIntegralInRange<off_t>(0, 16));
            break;
        case 1: {
            const auto content = data.ConsumeBytes<uint8_t>(sizeof(ObjectRecord));
            (void)!pwrite(file, content.data(), content.size(), 0);
            break;
        }
        case 2:
            end[-2] = data.ConsumeBool() ? static_cast<uint32_t>(gettid()) : 0;
            break;
        case 3:
            end[-2] = data.ConsumeIntegral<uint32_t>();
            break;
        case 4:
            *static_cast<uint32_t *>(object.memory.Data()) = data.ConsumeIntegral<uint32_t>();
            break;
        default:
            end[-1 - data.ConsumeIntegralInRange<std::ptrdiff_t>(0, static_cast<long>(words) - 1)] =
                data.ConsumeIntegral<uint32_t>();
            break;
    }
}

void Use(Held &held, FuzzedDataProvider &data) {
    const bool isMutex = ObjectOf(held.handle)->kind == ObjectKind::mutex;
    switch (data.ConsumeIntegralInRange<int>(0, 4)) {
        case 0:
            (void)SetEvent(held.handle);
            break;
        case 1:
            Require(ReleaseMutex(held.handle) == (held.depth > 0));
            held.depth -= held.depth > 0 ? 1 : 0;
            break;
        case 2:
            std::thread([&] {
                const uint32_t outcome = Wait(held.handle, data.ConsumeBool() ? 1 : 0);
                const bool isTaken = outcome == kWaitSignalled || outcome == kWaitAbandoned;
                Require(!isMutex || held.depth == 0 || !isTaken);
                // Half of the threads end with it.
                if (isTaken && data.ConsumeBool()) (void)ReleaseMutex(held.handle);
            }).join();
            break;
        default: {
            const uint32_t outcome = Wait(held.handle, data.ConsumeBool() ? 1 : 0);
            const bool isTaken = outcome == kWaitSignalled || outcome == kWaitAbandoned;
            Require(held.depth == 0 || isTaken);
            if (isMutex && isTaken) ++held.depth;
            break;
        }
    }
}

void OpenNamespace() {
    static const bool isOpen = [] {
        const std::string name = "fuzz-" + std::to_string(getpid());
        return setenv("AIPLC_NAMESPACE", name.c_str(), 1) == 0;
    }();
    Require(isOpen);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    OpenNamespace();
    FuzzedDataProvider data(bytes, size);
    std::array<Held, kNames.size()> all{};
    for (int calls = 0; calls < kMostCalls && data.remaining_bytes() > 0; ++calls) {
        const auto which = data.ConsumeIntegralInRange<size_t>(0, kNames.size() - 1);
        Held &held = all[which];
        if (held.handle == nullptr) {
            Open(held, kNames[which], data);
        } else if (data.ConsumeIntegralInRange<int>(0, 15) == 0) {
            Close(held);
        } else if (data.ConsumeBool()) {
            Meddle(held, data);
        } else {
            Use(held, data);
        }
    }
    for (Held &held : all)
        Close(held);
    Require(HasNoListedLock());
    return 0;
}
