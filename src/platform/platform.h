// SPDX-License-Identifier: BSD-2-Clause
//
// The seam to the operating system. Nothing above knows an operating system; tests replace this
// translation unit at link time with a scripted one.
//
// Named objects live in a namespace that is private to the user (see linux/namespace.h): two
// handles of one name are one object, the first to open it creates it, and it vanishes with its
// last handle, also when the holder was killed. Names are plain: letters, digits, underscore, dot.

#ifndef AIPLC_PLATFORM_H
#define AIPLC_PLATFORM_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace aiplc::platform {

using Handle = void *;

// Belongs to the process that opened it: a forked child may not use it, and keeps the object alive
// until it ends or executes another program. Failed creation yields null; InvalidHandle() is never
// a usable handle either.
inline Handle InvalidHandle() {
    return reinterpret_cast<Handle>(~std::uintptr_t{0});  // NOLINT(performance-no-int-to-ptr)
}

// Outcomes of Wait.
inline constexpr uint32_t kWaitSignalled = 0;
inline constexpr uint32_t kWaitAbandoned = 128;  // a mutex whose owner died; the caller now owns it
inline constexpr uint32_t kWaitTimeout = 258;
inline constexpr uint32_t kWaitFailed = 0xFFFFFFFF;
// Time-out that never comes.
inline constexpr uint32_t kWaitForever = 0xFFFFFFFF;

#if defined(_WIN32)
inline constexpr char kPathSeparator = '\\';
#else
inline constexpr char kPathSeparator = '/';
#endif

// The calling thread's last error of this interface (errno values on POSIX); a wait that timed out
// sets it too, a success leaves it.
uint32_t LastError();

// ---- Shared memory ----

// An existing mapping, or null.
Handle OpenMapping(const char *name);
// A mapping of at least size bytes, zero-filled when new; an existing one keeps its size.
Handle CreateMapping(const char *name, size_t size);
// Maps the whole of it. *size receives the mapped bytes. Null on failure.
void *MapView(Handle mapping, size_t *size);
bool UnmapView(void *view);

// ---- Events (auto-reset, initially not signalled) ----

Handle CreateNamedEvent(const char *name);
bool SetEvent(Handle event);
bool ResetEvent(Handle event);

// ---- Mutex (owned by a thread, may be taken again by it) ----

Handle CreateNamedMutex(const char *name);
// False when the calling thread does not own it.
bool ReleaseMutex(Handle mutex);

// Waits for an event (and consumes its signal) or a mutex (and owns it). 0 ms never blocks. The
// handle must stay open meanwhile.
uint32_t Wait(Handle handle, uint32_t timeoutMs);
// Closing this process's last handle to a mutex releases what the calling thread owns of it.
bool CloseHandle(Handle handle);

// ---- Processes ----

// Starts the executable detached: no arguments, no terminal, no inherited descriptors, the caller's
// environment and current directory. The caller has no child to wait for.
bool StartDetachedProcess(const char *path);

enum class FindStatus { found, absent, failed };
// Looks for the executable name (exact, no path) among the processes of this namespace. A process
// that ended is not found, zombies included. *id receives the process id.
FindStatus FindProcess(const char *name, uint32_t *id);

// Path of the running executable into buffer, NUL-terminated; returns its length, 0 on failure.
uint32_t ExecutablePath(char *buffer, uint32_t capacity);

// ---- Time ----

void Sleep(uint32_t milliseconds);
int64_t PerformanceCounter();
int64_t PerformanceFrequency();  // ticks per second

// ---- Bounded memory and text (0 on success) ----

// Copies count bytes, or fails without touching the destination beyond its size: null pointers,
// overlap and count > destinationSize fail; a failed copy clears the destination.
int CopyBounded(void *destination, size_t destinationSize, const void *source, size_t count);
int FillBounded(void *destination, size_t destinationSize, int value, size_t count);
// Formats at most maxCount characters plus NUL; -1 when the text is longer or cannot be formatted.
int FormatBounded(char *buffer, size_t bufferSize, size_t maxCount, const char *format,
                  va_list arguments);

// ---- The worker's own needs ----

// Declares this process a server of its namespace rather than a host; call before anything else.
void JoinAsServer();
// Blocks until no host process holds an object of the namespace (true), or until it cannot be
// told (false). Returns at once when there never was a host.
bool WaitHostsGone();
// Requests SCHED_RR for the calling thread and locks the current pages in memory, as far as the
// system grants it. Threads that it starts have the usual priority.
void AskForRealTime();

}  // namespace aiplc::platform

#endif
