// SPDX-License-Identifier: BSD-2-Clause
//
// An auto-reset event is a futex word, 1 while set. A set wakes all waiters and the one that turns
// the word back to 0 has consumed the signal; the others sleep on. Waking only one would lose the
// signal for the others when that one is killed before it has consumed it.

#include "src/platform/linux/event.h"

#include <linux/futex.h>
#include <sys/syscall.h>

#include <climits>

#include "src/platform/linux/deadline.h"
#include "src/platform/linux/last_error.h"

namespace aiplc::platform {

namespace {

static_assert(sizeof(timespec::tv_sec) == sizeof(long), "SYS_futex takes the kernel's timespec");
static_assert(std::atomic_ref<uint32_t>::is_always_lock_free);

uint32_t &SignalOf(const NamedObject &event) {
    return *static_cast<uint32_t *>(event.memory.Data());
}

// Any value but 0 counts as set, so that a stray one cannot make a waiter spin.
bool Consume(uint32_t &signal) {
    const std::atomic_ref<uint32_t> word(signal);
    return word.load() != 0 && word.exchange(0) != 0;
}

// Sleeps while the word is 0, at most until the deadline (null: for ever). An errno value.
int SleepWhileClear(uint32_t &signal, const timespec *deadline) {
    const long result = syscall(SYS_futex, &signal, FUTEX_WAIT_BITSET, 0U, deadline, nullptr,
                                FUTEX_BITSET_MATCH_ANY);
    return result == 0 ? 0 : errno;
}

}  // namespace

Handle CreateNamedEvent(const char *name) {
    return OpenObject(name, ObjectKind::event, sizeof(uint32_t), Absent::create);
}

bool SetEvent(Handle event) {
    NamedObject *object = ObjectOf(event, ObjectKind::event);
    if (object == nullptr) return false;
    uint32_t &signal = SignalOf(*object);
    std::atomic_ref<uint32_t>(signal).store(1);
    if (syscall(SYS_futex, &signal, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0) < 0) {
        return Fail(errno);
    }
    return true;
}

bool ResetEvent(Handle event) {
    NamedObject *object = ObjectOf(event, ObjectKind::event);
    if (object == nullptr) return false;
    std::atomic_ref<uint32_t>(SignalOf(*object)).store(0);
    return true;
}

uint32_t WaitEvent(NamedObject &event, uint32_t timeoutMs) {
    uint32_t &signal = SignalOf(event);
    if (Consume(signal)) return kWaitSignalled;
    if (timeoutMs == 0) return FailWait(ETIMEDOUT);

    const timespec deadline = DeadlineAfter(timeoutMs);
    for (;;) {
        const int error = SleepWhileClear(signal, timeoutMs == kWaitForever ? nullptr : &deadline);
        if (Consume(signal)) return kWaitSignalled;
        // EAGAIN: it was set, and consumed by another, before this one slept.
        if (error != 0 && error != EINTR && error != EAGAIN) return FailWait(error);
        // Another process may set and clear it all the time.
        if (timeoutMs != kWaitForever && !IsAhead(deadline)) return FailWait(ETIMEDOUT);
    }
}

}  // namespace aiplc::platform
