// SPDX-License-Identifier: BSD-2-Clause
//
// Named objects of a namespace and the handles to them.
//
// An object is a file, which says what kind it is and in which segment its memory lies. Every
// process with a handle holds a shared lock on the file, so that an object nobody holds can be told
// from one in use, also when its last holder was killed: it is removed then and made anew. A
// process opens an object and attaches its memory once, however many handles it has, so that its
// threads share one account of who owns a mutex. Opening and closing take locks; what waits or
// signals takes none of them.
//
// Nothing in file or memory is believed: other processes of the user may write anything there.
//
// A forked child inherits no handle it may use, and keeps its parent's objects alive until it
// ends or executes another program.

#ifndef AIPLC_LINUX_NAMED_OBJECT_H
#define AIPLC_LINUX_NAMED_OBJECT_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "src/platform/linux/namespace.h"
#include "src/platform/linux/segment.h"
#include "src/platform/platform.h"

namespace aiplc::platform {

enum class ObjectKind : uint32_t { mapping = 1, event = 2, mutex = 3 };

// Content of an object's file, written once, before anyone else can see it.
struct ObjectRecord {
    uint32_t magic;
    ObjectKind kind;
    int32_t segment;  // number, of its memory
};

struct Membership;  // named_object.cpp

// The state of a named object in this process. A handle points to it.
struct NamedObject {
    NamedObject *next = nullptr;
    Membership *membership = nullptr;  // null without handles
    ObjectKind kind = ObjectKind::mapping;
    Descriptor file;  // holds the shared lock; closed without handles
    struct stat status {};
    // Event: the futex word at its start, 0 or 1. Mutex: the lock word before its end. Mapping: the
    // data.
    Segment memory;
    uint32_t handles = 0;
    // Mutex: the lock between the threads of this process, the one that owns it (ThreadNumber, 0
    // none) and how many times. A thread that ended stays noted until another one takes over.
    pthread_mutex_t threads{};
    std::atomic<uint64_t> owner{0};
    uint32_t depth = 0;
    char name[kNameBytes] = {};
};

// A handle to the named object, or null with the last error set: EINVAL bad name or size or a file
// that is none of ours, EEXIST another kind of object has the name, ENOENT absent, or what the
// system reports. bytes matter only for an object that has to be made.
Handle OpenObject(const char *name, ObjectKind kind, size_t bytes, Absent absent);

// The object behind a handle, or null with the last error EBADF when it is no handle of that kind.
NamedObject *ObjectOf(Handle handle);
NamedObject *ObjectOf(Handle handle, ObjectKind kind);

}  // namespace aiplc::platform

#endif
