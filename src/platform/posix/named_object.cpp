// SPDX-License-Identifier: BSD-2-Clause

#include "platform/posix/named_object.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>

#include "platform/posix/hosts.h"
#include "platform/posix/last_error.h"
#include "platform/posix/mutex.h"

namespace aiplc::platform {

// This process's stake in a namespace, kept while it has handles there.
struct Membership {
    Membership *next = nullptr;
    Namespace space;
    Descriptor presence;  // see hosts.h
    uint32_t objects = 0;
};

namespace {

constexpr uint32_t kMagic = 0x41504C31;
constexpr int kFileFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;

// Guards the two lists, what they hold but for the owner and depth of mutexes, and the locks on
// the memberships' namespaces.
std::mutex registryLock;
NamedObject *objects = nullptr;
Membership *memberships = nullptr;

template <typename Node>
void Prepend(Node *&list, Node *node) {
    node->next = list;
    list = node;
}

template <typename Node>
void Remove(Node *&list, Node *node) {
    Node **link = &list;
    while (*link != node)
        link = &(*link)->next;
    *link = node->next;
}

bool IsValidName(const char *name) {
    if (name == nullptr || name[0] == '\0' || name[0] == '.') return false;
    size_t length = 0;
    for (; name[length] != '\0'; ++length) {
        const auto c = static_cast<unsigned char>(name[length]);
        const bool allowed = c < 0x80 && (std::isalnum(c) != 0 || c == '_' || c == '.');
        if (!allowed || length + 1 == kNameBytes) return false;
    }
    return true;
}

// ---- Membership ----

// This process's membership in an opened namespace, locked; null with errno set.
Membership *Join(Namespace space) {
    for (Membership *known = memberships; known != nullptr; known = known->next) {
        if (!known->space.IsSame(space)) continue;
        space = Namespace();  // which holds the lock
        return known->space.Lock() ? known : nullptr;
    }
    auto *joined = new (std::nothrow) Membership;
    if (joined == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    if (!JoinHosts(space, &joined->presence)) {
        space.RemoveIfEmpty();
        delete joined;
        return nullptr;
    }
    joined->space = std::move(space);
    Prepend(memberships, joined);
    return joined;
}

// Unlocks the namespace, and ends a membership without objects.
void UnlockOrLeave(Membership *membership) {
    if (membership->objects != 0) {
        membership->space.Unlock();
        return;
    }
    LeaveHosts(membership->space, std::move(membership->presence));
    membership->space.RemoveStale();
    membership->space.RemoveIfEmpty();
    Remove(memberships, membership);
    delete membership;
}

// ---- Objects; the namespace is locked ----

// The file of an object that somebody holds, or a closed descriptor: errno is ENOENT when there is
// none, or was none but a stale one.
Descriptor OpenFile(const Namespace &space, const char *name, struct stat *status) {
    Descriptor file(openat(space.Directory(), name, kFileFlags));
    if (!file.IsOpen() || fstat(file.Get(), status) != 0) return Descriptor();
    if (!S_ISREG(status->st_mode)) {
        errno = EINVAL;
        return Descriptor();
    }
    if (LockFile(file, LOCK_EX | LOCK_NB)) {
        space.Unlink(name, file);
        errno = ENOENT;
        return Descriptor();
    }
    if (errno != EWOULDBLOCK || !LockFile(file, LOCK_SH)) return Descriptor();
    return file;
}

// Maps the state page; false with errno set.
bool MapState(NamedObject *object) {
    void *state =
        mmap(nullptr, StateBytes(), PROT_READ | PROT_WRITE, MAP_SHARED, object->file.Get(), 0);
    if (state == MAP_FAILED) return false;
    object->state = static_cast<ObjectState *>(state);
    return true;
}

int Reserve(const Descriptor &file, size_t bytes) {
    int error = EINTR;
    while (error == EINTR)
        error = posix_fallocate(file.Get(), 0, static_cast<off_t>(bytes));
    return error;
}

// Makes the object's file with all its memory, so that a full file system shows now and not as a
// bus error later. An errno value.
int CreateFile(const Namespace &space, size_t dataBytes, NamedObject *object) {
    object->file =
        Descriptor(openat(space.Directory(), object->name, kFileFlags | O_CREAT | O_EXCL, 0600));
    if (!object->file.IsOpen() || !LockFile(object->file, LOCK_SH)) return errno;
    const int error = Reserve(object->file, StateBytes() + dataBytes);
    if (error != 0) return error;
    if (fstat(object->file.Get(), &object->status) != 0 || !MapState(object)) return errno;

    ObjectState *state = object->state;
    state->magic = kMagic;
    state->stateBytes = sizeof(ObjectState);
    state->kind = object->kind;
    return object->kind == ObjectKind::mutex ? InitializeMutex(&state->mutex) : 0;
}

// Takes up a file that another process made. An errno value.
int AdoptFile(NamedObject *object) {
    const auto bytes = static_cast<size_t>(object->status.st_size);
    if (bytes < StateBytes()) return EINVAL;
    if (!MapState(object)) return errno;
    const ObjectState *state = object->state;
    if (state->magic != kMagic || state->stateBytes != sizeof(ObjectState)) return EINVAL;
    if (state->kind != object->kind) return EEXIST;
    const bool hasData = bytes > StateBytes();
    return hasData == (object->kind == ObjectKind::mapping) ? 0 : EINVAL;
}

void Discard(NamedObject *object) {
    if (object->state != nullptr) munmap(object->state, StateBytes());
    delete object;
}

NamedObject *FindObject(const struct stat &status) {
    NamedObject *object = objects;
    while (object != nullptr && !IsSameFile(object->status, status))
        object = object->next;
    return object;
}

// Adds a handle to an object that this process knows already.
int Reopen(NamedObject *object, ObjectKind kind, Membership *membership, Descriptor file) {
    if (object->kind != kind) return EEXIST;
    if (object->handles == 0) {
        object->file = std::move(file);
        object->membership = membership;
        ++membership->objects;
    }
    ++object->handles;
    return 0;
}

struct Request {
    const char *name;
    ObjectKind kind;
    size_t dataBytes;
    Absent absent;
};

// An errno value, 0 with *opened set.
int OpenIn(Membership *membership, const Request &request, NamedObject **opened) {
    struct stat status {};
    Descriptor file = OpenFile(membership->space, request.name, &status);
    if (file.IsOpen()) {
        if (NamedObject *known = FindObject(status)) {
            *opened = known;
            return Reopen(known, request.kind, membership, std::move(file));
        }
    } else if (errno != ENOENT || request.absent == Absent::fail) {
        return errno;
    }

    auto *object = new (std::nothrow) NamedObject;
    if (object == nullptr) return ENOMEM;
    object->kind = request.kind;
    std::memcpy(object->name, request.name, std::strlen(request.name) + 1);
    int error = 0;
    if (file.IsOpen()) {
        object->file = std::move(file);
        object->status = status;
        error = AdoptFile(object);
    } else {
        error = CreateFile(membership->space, request.dataBytes, object);
        if (error != 0) membership->space.Unlink(object->name, object->file);
    }
    if (error != 0) {
        Discard(object);
        return error;
    }
    object->membership = membership;
    object->handles = 1;
    ++membership->objects;
    Prepend(objects, object);
    *opened = object;
    return 0;
}

// Takes this process's last handle off an object.
void Release(NamedObject *object) {
    Membership *membership = object->membership;
    const bool isDetached = DetachMutex(*object);
    const bool isLocked = membership->space.Lock();
    if (isLocked && LockFile(object->file, LOCK_EX | LOCK_NB)) {
        membership->space.Unlink(object->name, object->file);
    }
    // A view keeps the open file and so would keep its lock.
    LockFile(object->file, LOCK_UN);
    object->file.Close();
    object->membership = nullptr;
    --membership->objects;
    // Else it stays known without handles: reopened, its owner still owns it.
    if (isDetached) {
        Remove(objects, object);
        Discard(object);
    }
    UnlockOrLeave(membership);
}

}  // namespace

size_t StateBytes() {
    static const auto bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return bytes;
}

Handle OpenObject(const char *name, ObjectKind kind, size_t dataBytes, Absent absent) {
    if (!IsValidName(name) || dataBytes > PTRDIFF_MAX - StateBytes()) {
        Fail(EINVAL);
        return nullptr;
    }
    const std::lock_guard<std::mutex> guard(registryLock);
    Namespace space;
    Membership *membership = space.Open(absent) ? Join(std::move(space)) : nullptr;
    if (membership == nullptr) {
        Fail(errno);
        return nullptr;
    }
    NamedObject *opened = nullptr;
    const int error = OpenIn(membership, {name, kind, dataBytes, absent}, &opened);
    UnlockOrLeave(membership);
    if (error == 0) return opened;
    Fail(error);
    return nullptr;
}

NamedObject *ObjectOf(Handle handle) {
    if (handle != nullptr && handle != InvalidHandle()) return static_cast<NamedObject *>(handle);
    Fail(EBADF);
    return nullptr;
}

NamedObject *ObjectOf(Handle handle, ObjectKind kind) {
    NamedObject *object = ObjectOf(handle);
    if (object == nullptr || object->kind == kind) return object;
    Fail(EBADF);
    return nullptr;
}

bool CloseHandle(Handle handle) {
    const std::lock_guard<std::mutex> guard(registryLock);
    NamedObject *object = objects;
    while (object != nullptr && object != handle)
        object = object->next;
    if (object == nullptr || object->handles == 0) return Fail(EBADF);
    if (--object->handles == 0) Release(object);
    return true;
}

}  // namespace aiplc::platform
