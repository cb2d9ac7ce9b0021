// SPDX-License-Identifier: BSD-2-Clause

#include "injection.h"

#include <aiplc/aiplc.h>
#include <dirent.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "../platform/child_process.h"
#include "platform/platform.h"
#include "service.h"

namespace aiplc::faults {
namespace {

thread_local int depth = 0;  // of calls into the library
std::unique_ptr<platform::Child> worker;

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

// Counts what the library keeps.
template <typename Pointer>
Pointer Kept(int64_t &count, Pointer pointer) {
    if (depth > 0 && pointer != nullptr) ++count;
    return pointer;
}

class Loud : public worker::Predictor {
    int32_t Predict(std::span<const int16_t, worker::kWindowSamples>,
                    std::span<int16_t, worker::kWindowSamples> out) noexcept override {
        std::ranges::fill(out, int16_t{1000});
        return 0;
    }
};

int Serve(platform::Line line) {
    depth = 0;
    platform::JoinAsServer();
    Loud loud;
    worker::Service service(loud);
    const bool isOpen = service.Open();
    line.Tell();
    return isOpen ? service.Run() : 1;
}

}  // namespace

Outside::Outside() : m_depth(std::exchange(depth, 0)) {}
Outside::~Outside() {
    depth = m_depth;
}

void EndWorker() {
    worker.reset();
}

}  // namespace aiplc::faults

using namespace aiplc::faults;  // NOLINT(google-build-using-namespace)
namespace platform = aiplc::platform;

// A wrapper takes the calls of the symbol; the symbol itself is __real_.
#define WRAPPED(RESULT, NAME, SYMBOL, ...)                \
    RESULT Real##NAME(__VA_ARGS__) asm("__real_" SYMBOL); \
    RESULT Wrap##NAME(__VA_ARGS__) asm("__wrap_" SYMBOL); \
    RESULT Wrap##NAME(__VA_ARGS__)
#define SEAM(NAME) "_ZN5aiplc8platform" NAME

// ---- Into the library ----

WRAPPED(int32_t, Init, "AiPlcAsyncInit", StAiPlcChannel *channel, int16_t enable) {
    const Inside inside;
    return RealInit(channel, enable);
}
WRAPPED(int32_t, Apply, "AiPlcApply", AiPlcHostContext *host, uint32_t argument, uint16_t stream) {
    const Inside inside;
    return RealApply(host, argument, stream);
}
WRAPPED(int32_t, Destroy, "AiPlcAsyncDestroy", StAiPlcChannel *channel) {
    const Inside inside;
    return RealDestroy(channel);
}

// ---- Memory ----

WRAPPED(void *, Malloc, "malloc", size_t size) {
    return Fails(Kind::memory, "malloc") ? nullptr : Kept(plan.allocated, RealMalloc(size));
}
WRAPPED(void *, Calloc, "calloc", size_t count, size_t size) {
    return Fails(Kind::memory, "calloc") ? nullptr : Kept(plan.allocated, RealCalloc(count, size));
}
WRAPPED(void, Free, "free", void *block) {
    if (depth > 0 && block != nullptr) --plan.allocated;
    RealFree(block);
}
WRAPPED(void *, New, "_Znwm", size_t size) {
    if (Fails(Kind::memory, "operator new")) throw std::bad_alloc();
    return RealNew(size);
}
WRAPPED(void *, NewNothrow, "_ZnwmRKSt9nothrow_t", size_t size, const std::nothrow_t &tag) {
    return Fails(Kind::memory, "operator new") ? nullptr : RealNewNothrow(size, tag);
}
// ---- The platform seam ----

WRAPPED(platform::Handle, OpenMapping, SEAM("11OpenMappingEPKc"), const char *name) {
    return Fails(Kind::platform, "OpenMapping") ? nullptr : Kept(plan.held, RealOpenMapping(name));
}
WRAPPED(platform::Handle, CreateMapping, SEAM("13CreateMappingEPKcm"), const char *name,
        size_t size) {
    return Fails(Kind::platform, "CreateMapping") ? nullptr
                                                  : Kept(plan.held, RealCreateMapping(name, size));
}
WRAPPED(void *, MapView, SEAM("7MapViewEPvPm"), platform::Handle mapping, size_t *size) {
    return Fails(Kind::platform, "MapView") ? nullptr : Kept(plan.held, RealMapView(mapping, size));
}
WRAPPED(platform::Handle, CreateEvent, SEAM("16CreateNamedEventEPKc"), const char *name) {
    return Fails(Kind::platform, "CreateNamedEvent") ? nullptr
                                                     : Kept(plan.held, RealCreateEvent(name));
}
WRAPPED(platform::Handle, CreateMutex, SEAM("16CreateNamedMutexEPKc"), const char *name) {
    return Fails(Kind::platform, "CreateNamedMutex") ? nullptr
                                                     : Kept(plan.held, RealCreateMutex(name));
}
WRAPPED(bool, UnmapView, SEAM("9UnmapViewEPv"), void *view) {
    if (depth > 0) --plan.held;
    return RealUnmapView(view) && !Fails(Kind::platform, "UnmapView");
}
WRAPPED(bool, CloseHandle, SEAM("11CloseHandleEPv"), platform::Handle handle) {
    if (depth > 0) --plan.held;
    return RealCloseHandle(handle) && !Fails(Kind::platform, "CloseHandle");
}
WRAPPED(bool, SetEvent, SEAM("8SetEventEPv"), platform::Handle event) {
    return !Fails(Kind::platform, "SetEvent") && RealSetEvent(event);
}
WRAPPED(bool, ResetEvent, SEAM("10ResetEventEPv"), platform::Handle event) {
    return !Fails(Kind::platform, "ResetEvent") && RealResetEvent(event);
}
WRAPPED(bool, ReleaseMutex, SEAM("12ReleaseMutexEPv"), platform::Handle mutex) {
    return RealReleaseMutex(mutex) && !Fails(Kind::platform, "ReleaseMutex");
}
WRAPPED(uint32_t, Wait, SEAM("4WaitEPvj"), platform::Handle handle, uint32_t timeoutMs) {
    return Fails(Kind::platform, "Wait") ? platform::kWaitFailed : RealWait(handle, timeoutMs);
}
WRAPPED(uint32_t, ExecutablePath, SEAM("14ExecutablePathEPcj"), char *buffer, uint32_t capacity) {
    return Fails(Kind::platform, "ExecutablePath") ? 0 : RealExecutablePath(buffer, capacity);
}
WRAPPED(int, CopyBounded, SEAM("11CopyBoundedEPvmPKvm"), void *destination, size_t size,
        const void *source, size_t count) {
    if (!Fails(Kind::platform, "CopyBounded"))
        return RealCopyBounded(destination, size, source, count);
    std::fill_n(static_cast<uint8_t *>(destination), size, uint8_t{0});
    return -1;
}
WRAPPED(int, FillBounded, SEAM("11FillBoundedEPvmim"), void *destination, size_t size, int value,
        size_t count) {
    return Fails(Kind::platform, "FillBounded") ? -1
                                                : RealFillBounded(destination, size, value, count);
}
WRAPPED(void, Sleep, SEAM("5SleepEj"), uint32_t ms) {
    if (depth == 0) RealSleep(ms);  // nobody here needs the time
}
WRAPPED(bool, Start, SEAM("20StartDetachedProcessEPKc"), const char *) {
    if (Fails(Kind::platform, "StartDetachedProcess")) return false;
    const Outside outside;
    worker = std::make_unique<platform::Child>(Serve);
    return worker->isReady;
}
WRAPPED(platform::FindStatus, FindProcess, SEAM("11FindProcessEPKcPj"), const char *,
        uint32_t *id) {
    if (Fails(Kind::platform, "FindProcess")) return platform::FindStatus::failed;
    if (worker == nullptr) return platform::FindStatus::absent;
    *id = static_cast<uint32_t>(worker->id);
    return platform::FindStatus::found;
}

// ---- The operating system ----

WRAPPED(int, OpenAt, "openat", int folder, const char *path, int flags, mode_t mode) {
    return FailsWith(EMFILE, "openat") ? -1 : RealOpenAt(folder, path, flags, mode);
}
WRAPPED(int, Open, "open", const char *path, int flags, mode_t mode) {
    return FailsWith(EMFILE, "open") ? -1 : RealOpen(path, flags, mode);
}
WRAPPED(int, MakeFolder, "mkdirat", int folder, const char *path, mode_t mode) {
    return FailsWith(ENOSPC, "mkdirat") ? -1 : RealMakeFolder(folder, path, mode);
}
WRAPPED(int, Status, "fstat", int file, struct stat *status) {
    return FailsWith(EIO, "fstat") ? -1 : RealStatus(file, status);
}
WRAPPED(int, StatusAt, "fstatat", int folder, const char *path, struct stat *status, int flags) {
    return FailsWith(EIO, "fstatat") ? -1 : RealStatusAt(folder, path, status, flags);
}
WRAPPED(int, FileSystem, "fstatfs", int file, struct statfs *status) {
    return FailsWith(EIO, "fstatfs") ? -1 : RealFileSystem(file, status);
}
WRAPPED(int, Lock, "flock", int file, int operation) {
    // To unlock cannot fail.
    return operation != LOCK_UN && FailsWith(ENOLCK, "flock") ? -1 : RealLock(file, operation);
}
WRAPPED(ssize_t, Read, "pread", int file, void *to, size_t size, off_t offset) {
    return FailsWith(EIO, "pread") ? -1 : RealRead(file, to, size, offset);
}
WRAPPED(ssize_t, Write, "pwrite", int file, const void *from, size_t size, off_t offset) {
    return FailsWith(ENOSPC, "pwrite") ? -1 : RealWrite(file, from, size, offset);
}
WRAPPED(int, MakeSegment, "shmget", key_t key, size_t size, int flags) {
    return FailsWith(ENOSPC, "shmget") ? -1 : RealMakeSegment(key, size, flags);
}
WRAPPED(void *, Attach, "shmat", int segment, const void *at, int flags) {
    return FailsWith(ENOMEM, "shmat") ? MAP_FAILED : RealAttach(segment, at, flags);
}
WRAPPED(int, Control, "shmctl", int segment, int command, shmid_ds *status) {
    // To mark what is one's own for removal cannot fail.
    return command != IPC_RMID && FailsWith(EIDRM, "shmctl")
               ? -1
               : RealControl(segment, command, status);
}
WRAPPED(void *, Map, "mmap", void *at, size_t size, int access, int flags, int file, off_t offset) {
    return FailsWith(ENOMEM, "mmap") ? MAP_FAILED : RealMap(at, size, access, flags, file, offset);
}
WRAPPED(DIR *, OpenFolder, "fdopendir", int folder) {
    return FailsWith(ENOMEM, "fdopendir") ? nullptr : RealOpenFolder(folder);
}
WRAPPED(int, Unlink, "unlinkat", int folder, const char *path, int flags) {
    return FailsWith(EIO, "unlinkat") ? -1 : RealUnlink(folder, path, flags);
}
