// SPDX-License-Identifier: BSD-2-Clause
//
// A robust process-shared mutex of the C library under our own account of who owns it. Owner and
// depth are kept per process, where no other process can falsify them and where the number of an
// ended thread cannot come back as that of a new one.

#include "platform/posix/mutex.h"

#include <cerrno>

#include "platform/posix/deadline.h"
#include "platform/posix/last_error.h"

namespace aiplc::platform {

namespace {

// A number from 1 that no other thread of this process has or had.
uint64_t ThreadNumber() {
    static std::atomic<uint64_t> last{0};
    thread_local const uint64_t number = ++last;
    return number;
}

bool IsOwn(const NamedObject &mutex) {
    return mutex.owner.load(std::memory_order_relaxed) == ThreadNumber();
}

int Unlock(NamedObject &mutex) {
    mutex.depth = 0;
    mutex.owner.store(0, std::memory_order_relaxed);
    return pthread_mutex_unlock(&mutex.state->mutex);
}

int LockWithin(pthread_mutex_t *mutex, uint32_t timeoutMs) {
    if (timeoutMs == 0) {
        const int error = pthread_mutex_trylock(mutex);
        return error == EBUSY ? ETIMEDOUT : error;
    }
    if (timeoutMs == kWaitForever) return pthread_mutex_lock(mutex);
    const timespec deadline = DeadlineAfter(timeoutMs);
    return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &deadline);
}

}  // namespace

int InitializeMutex(pthread_mutex_t *mutex) {
    pthread_mutexattr_t attributes;
    int error = pthread_mutexattr_init(&attributes);
    if (error != 0) return error;
    error = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    if (error == 0) error = pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    if (error == 0) error = pthread_mutex_init(mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return error;
}

Handle CreateNamedMutex(const char *name) {
    return OpenObject(name, ObjectKind::mutex, 0, Absent::create);
}

uint32_t WaitMutex(NamedObject &mutex, uint32_t timeoutMs) {
    if (IsOwn(mutex)) {
        if (mutex.depth == UINT32_MAX) return FailWait(EAGAIN);
        ++mutex.depth;
        return kWaitSignalled;
    }
    const int error = LockWithin(&mutex.state->mutex, timeoutMs);
    if (error != 0 && error != EOWNERDEAD) return FailWait(error);
    if (error == EOWNERDEAD) pthread_mutex_consistent(&mutex.state->mutex);
    mutex.owner.store(ThreadNumber(), std::memory_order_relaxed);
    mutex.depth = 1;
    return error == EOWNERDEAD ? kWaitAbandoned : kWaitSignalled;
}

bool ReleaseMutex(Handle mutex) {
    NamedObject *object = ObjectOf(mutex, ObjectKind::mutex);
    if (object == nullptr) return false;
    if (!IsOwn(*object)) return Fail(EPERM);
    if (--object->depth != 0) return true;
    const int error = Unlock(*object);
    return error == 0 || Fail(error);
}

bool DetachMutex(NamedObject &mutex) {
    if (IsOwn(mutex)) Unlock(mutex);
    return mutex.owner.load(std::memory_order_relaxed) == 0;
}

}  // namespace aiplc::platform
