// SPDX-License-Identifier: BSD-2-Clause

#include "tests/faults/injection.h"

#include <aiplc/aiplc.h>
#include <dirent.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "src/platform/platform.h"
#include "tests/support/loud_worker.h"

namespace aiplc::faults {
namespace {

thread_local int depth = 0;  // of calls into the library
std::unique_ptr<worker::LoudWorker> process;

struct Inside {
    Inside() { ++depth; }
    ~Inside() { --depth; }
};

bool Fails(Kind kind, const char *name) {
    if (depth == 0 || kind != plan.kind || ++plan.count != plan.failing) return false;
    const Outside outside;
    plan.failed = name;
    return true;
}

bool FailsWith(int error, const char *name) {
    const bool fails = Fails(Kind::system, name);
    if (fails) errno = error;
    return fails;
}

void *Counted(void *block) {
    if (depth > 0 && block != nullptr) ++plan.allocated;
    return block;
}

}  // namespace

Outside::Outside() : m_depth(std::exchange(depth, 0)) {}
Outside::~Outside() {
    depth = m_depth;
}

void EndWorker() {
    process.reset();
}

}  // namespace aiplc::faults

using namespace aiplc::faults;  // NOLINT(google-build-using-namespace)

// NOLINTBEGIN(readability-identifier-naming,bugprone-macro-parentheses): the functions' own names,
// and lists

// A wrapper takes the calls of the symbol; the symbol itself is __real_.
#define WRAPPED(RESULT, NAME, ...)                        \
    RESULT Real_##NAME(__VA_ARGS__) asm("__real_" #NAME); \
    RESULT Wrap_##NAME(__VA_ARGS__) asm("__wrap_" #NAME); \
    RESULT Wrap_##NAME(__VA_ARGS__)
#define UNWRAPPED(...) __VA_ARGS__
// A call of the system that gives FAILURE and the error when it fails.
#define SYSTEM(RESULT, NAME, FAILURE, ERROR, PARAMETERS, ARGUMENTS)       \
    WRAPPED(RESULT, NAME, UNWRAPPED PARAMETERS) {                         \
        return FailsWith(ERROR, #NAME) ? FAILURE : Real_##NAME ARGUMENTS; \
    }

// ---- Into the library ----

WRAPPED(int32_t, AiPlcAsyncInit, StAiPlcChannel *channel, int16_t enable) {
    const Inside inside;
    return Real_AiPlcAsyncInit(channel, enable);
}
WRAPPED(int32_t, AiPlcApply, AiPlcHostContext *host, uint32_t argument, uint16_t stream) {
    const Inside inside;
    return Real_AiPlcApply(host, argument, stream);
}
WRAPPED(int32_t, AiPlcAsyncDestroy, StAiPlcChannel *channel) {
    const Inside inside;
    return Real_AiPlcAsyncDestroy(channel);
}

// ---- Memory; operator new fails when malloc does ----

WRAPPED(void *, malloc, size_t size) {
    return Fails(Kind::memory, "malloc") ? nullptr : Counted(Real_malloc(size));
}
WRAPPED(void *, calloc, size_t count, size_t size) {
    return Fails(Kind::memory, "calloc") ? nullptr : Counted(Real_calloc(count, size));
}
WRAPPED(void, free, void *block) {
    if (depth > 0 && block != nullptr) --plan.allocated;
    Real_free(block);
}
// Not inlined: the compiler would take free for the wrong partner of operator new.
[[gnu::noinline]] void *operator new(size_t size) {
    if (void *block = std::malloc(size)) return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void *operator new(size_t size, const std::nothrow_t &) noexcept {
    return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void *block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void *block, size_t) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void *block, const std::nothrow_t &) noexcept {
    std::free(block);
}

// ---- The operating system ----

SYSTEM(int, openat, -1, EMFILE, (int folder, const char *path, int flags, mode_t mode),
       (folder, path, flags, mode))
SYSTEM(int, open, -1, EMFILE, (const char *path, int flags, mode_t mode), (path, flags, mode))
SYSTEM(int, mkdirat, -1, ENOSPC, (int folder, const char *path, mode_t mode), (folder, path, mode))
SYSTEM(int, fstat, -1, EIO, (int file, struct stat *status), (file, status))
SYSTEM(int, fstatat, -1, EIO, (int folder, const char *path, struct stat *status, int flags),
       (folder, path, status, flags))
SYSTEM(int, fstatfs, -1, EIO, (int file, struct statfs *status), (file, status))
SYSTEM(ssize_t, pread, -1, EIO, (int file, void *to, size_t size, off_t at), (file, to, size, at))
SYSTEM(ssize_t, pwrite, -1, ENOSPC, (int file, const void *from, size_t size, off_t at),
       (file, from, size, at))
SYSTEM(int, shmget, -1, ENOSPC, (key_t key, size_t size, int flags), (key, size, flags))
SYSTEM(void *, shmat, MAP_FAILED, ENOMEM, (int segment, const void *at, int flags),
       (segment, at, flags))
SYSTEM(void *, mmap, MAP_FAILED, ENOMEM,
       (void *at, size_t size, int access, int flags, int file, off_t offset),
       (at, size, access, flags, file, offset))
SYSTEM(DIR *, fdopendir, nullptr, ENOMEM, (int folder), (folder))
SYSTEM(int, unlinkat, -1, EIO, (int folder, const char *path, int flags), (folder, path, flags))
// To unlock cannot fail, nor to mark what is one's own for removal.
WRAPPED(int, flock, int file, int operation) {
    return operation != LOCK_UN && FailsWith(ENOLCK, "flock") ? -1 : Real_flock(file, operation);
}
WRAPPED(int, shmctl, int segment, int command, shmid_ds *status) {
    const bool fails = command != IPC_RMID && FailsWith(EIDRM, "shmctl");
    return fails ? -1 : Real_shmctl(segment, command, status);
}

// NOLINTEND(readability-identifier-naming,bugprone-macro-parentheses)

// ---- Instead of the platform's own ----

namespace aiplc::platform {

bool StartDetachedProcess(const char *) {
    const Outside outside;
    process = std::make_unique<worker::LoudWorker>();
    return process->isReady;
}
uint32_t ExecutablePath(char *buffer, uint32_t capacity) {
    return static_cast<uint32_t>(std::snprintf(buffer, capacity, "/host"));
}
FindStatus FindProcess(const char *, uint32_t *id) {
    if (process == nullptr) return FindStatus::absent;
    *id = static_cast<uint32_t>(process->id);
    return FindStatus::found;
}

}  // namespace aiplc::platform
