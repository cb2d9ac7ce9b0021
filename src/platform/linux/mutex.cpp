// SPDX-License-Identifier: BSD-2-Clause
//
// Two locks, one behind the other: a robust mutex in private memory lets one thread of this process
// at a time to the word that the processes share. Which thread owns it, and how often, is kept here
// too, where no other process can falsify it and where the number of an ended thread cannot come
// back as that of a new one.

#include "src/platform/linux/mutex.h"

#include <cerrno>

#include "src/platform/linux/deadline.h"
#include "src/platform/linux/last_error.h"
#include "src/platform/linux/robust_word.h"

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

uint32_t *SharedWord(const NamedObject &mutex) {
    return reinterpret_cast<uint32_t *>(mutex.memory.End() - kRobustWordBytes);
}

void Unlock(NamedObject &mutex) {
    mutex.depth = 0;
    mutex.owner.store(0, std::memory_order_relaxed);
    UnlockWord(SharedWord(mutex));
    pthread_mutex_unlock(&mutex.threads);
}

// A thread that ended with the private lock has left the shared one to the kernel.
int TakeOver(pthread_mutex_t &threads, int error) {
    return error == EOWNERDEAD ? pthread_mutex_consistent(&threads) : error;
}

int LockThreads(pthread_mutex_t &threads, uint32_t timeoutMs, const timespec *deadline) {
    if (timeoutMs == 0) {
        const int error = TakeOver(threads, pthread_mutex_trylock(&threads));
        return error == EBUSY ? ETIMEDOUT : error;
    }
    return TakeOver(threads, deadline == nullptr
                                 ? pthread_mutex_lock(&threads)
                                 : pthread_mutex_clocklock(&threads, CLOCK_MONOTONIC, deadline));
}

int LockShared(uint32_t *word, uint32_t timeoutMs, const timespec *deadline) {
    return timeoutMs == 0 ? TryLockWord(word) : LockWord(word, deadline);
}

}  // namespace

int InitializeMutex(pthread_mutex_t *threads) {
    pthread_mutexattr_t attributes;
    int error = pthread_mutexattr_init(&attributes);
    if (error != 0) return error;
    error = pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    if (error == 0) error = pthread_mutex_init(threads, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return error;
}

Handle CreateNamedMutex(const char *name) {
    return OpenObject(name, ObjectKind::mutex, sizeof(uint32_t), Absent::create);
}

uint32_t WaitMutex(NamedObject &mutex, uint32_t timeoutMs) {
    if (IsOwn(mutex)) {
        if (mutex.depth == UINT32_MAX) return FailWait(EAGAIN);
        ++mutex.depth;
        return kWaitSignalled;
    }
    const timespec end = DeadlineAfter(timeoutMs);
    const timespec *deadline = timeoutMs == kWaitForever ? nullptr : &end;
    int error = LockThreads(mutex.threads, timeoutMs, deadline);
    if (error != 0) return FailWait(error);
    error = LockShared(SharedWord(mutex), timeoutMs, deadline);
    if (error != 0 && error != EOWNERDEAD) {
        pthread_mutex_unlock(&mutex.threads);
        return FailWait(error);
    }
    mutex.owner.store(ThreadNumber(), std::memory_order_relaxed);
    mutex.depth = 1;
    return error == EOWNERDEAD ? kWaitAbandoned : kWaitSignalled;
}

bool ReleaseMutex(Handle mutex) {
    NamedObject *object = ObjectOf(mutex, ObjectKind::mutex);
    if (object == nullptr) return false;
    if (!IsOwn(*object)) return Fail(EPERM);
    if (--object->depth == 0) Unlock(*object);
    return true;
}

bool DetachMutex(NamedObject &mutex) {
    if (mutex.kind != ObjectKind::mutex) return true;
    if (IsOwn(mutex)) Unlock(mutex);
    if (TakeOver(mutex.threads, pthread_mutex_trylock(&mutex.threads)) != 0) return false;
    pthread_mutex_unlock(&mutex.threads);
    return true;
}

}  // namespace aiplc::platform
