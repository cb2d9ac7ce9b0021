// SPDX-License-Identifier: BSD-2-Clause
//
// Named objects of a namespace and the handles to them.
//
// An object is a file: a page of state, followed by the data of a mapping. Every process with a
// handle holds a shared lock on it, so that an object nobody holds can be told from one in use,
// also when its last holder was killed: it is removed then and made anew. A process opens and maps
// an object once, however many handles it has, because the kernel keeps the list of mutexes to
// abandon by address. Opening and closing take locks; what waits or signals takes none of them.
//
// A forked child inherits no handle it may use, and keeps its parent's objects alive until it
// ends or executes another program.

#ifndef AIPLC_POSIX_NAMED_OBJECT_H
#define AIPLC_POSIX_NAMED_OBJECT_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "platform/platform.h"
#include "platform/posix/namespace.h"

namespace aiplc::platform {

enum class ObjectKind : uint32_t { mapping = 1, event = 2, mutex = 3 };

// The first page of an object's file. Written once, before anyone else can see it, but for signal
// and mutex.
struct ObjectState {
    uint32_t magic;
    uint32_t stateBytes;  // sizeof of this structure, which differs between word sizes
    ObjectKind kind;
    uint32_t signal;  // event: futex word, 0 or 1
    pthread_mutex_t mutex;
};

struct Membership;  // named_object.cpp

// What this process knows of an object it has handles to. A handle points to it.
struct NamedObject {
    NamedObject *next = nullptr;
    Membership *membership = nullptr;  // null without handles
    ObjectKind kind = ObjectKind::mapping;
    Descriptor file;  // holds the shared lock; closed without handles
    struct stat status {};
    ObjectState *state = nullptr;
    uint32_t handles = 0;
    // Mutex: the thread of this process that owns it (ThreadNumber, 0 none) and how many times.
    // A thread that ended stays noted until another one takes the mutex over.
    std::atomic<uint64_t> owner{0};
    uint32_t depth = 0;
    char name[kNameBytes] = {};
};

// Bytes of the state page, after which a mapping's data begins.
size_t StateBytes();

// A handle to the named object, or null with the last error set: EINVAL bad name or size or a file
// that is none of ours, EEXIST another kind of object has the name, ENOENT absent, or what the
// system reports. dataBytes matter only for a mapping that has to be made.
Handle OpenObject(const char *name, ObjectKind kind, size_t dataBytes, Absent absent);

// The object behind a handle, or null with the last error EBADF when it is no handle of that kind.
NamedObject *ObjectOf(Handle handle);
NamedObject *ObjectOf(Handle handle, ObjectKind kind);

}  // namespace aiplc::platform

#endif
