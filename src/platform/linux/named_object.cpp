// SPDX-License-Identifier: BSD-2-Clause

#include "src/platform/linux/named_object.h"

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>

#include "src/platform/linux/hosts.h"
#include "src/platform/linux/last_error.h"
#include "src/platform/linux/mutex.h"

namespace aiplc::platform {

// This process's stake in a namespace, kept while it has handles there.
struct Membership {
    Membership *next = nullptr;
    Namespace space;
    Descriptor presence;  // see hosts.h
    uint32_t objects = 0;
};

namespace {

constexpr uint32_t kMagic = 0x41504C32;
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

// Unlocks the namespace, and ends a membership without objects. Without its lock nothing of the
// namespace may be removed: the next host does it.
void UnlockOrLeave(Membership *membership, bool isLocked = true) {
    if (membership->objects != 0) {
        membership->space.Unlock();
        return;
    }
    membership->presence.Close();
    if (isLocked) {
        membership->space.RemoveStale();
        membership->space.RemoveIfEmpty();
    }
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

// Makes the object's file and its memory. An errno value.
int CreateFile(const Namespace &space, size_t bytes, NamedObject *object) {
    object->file =
        Descriptor(openat(space.Directory(), object->name, kFileFlags | O_CREAT | O_EXCL, 0600));
    if (!object->file.IsOpen() || !LockFile(object->file, LOCK_SH)) return errno;
    const int error = object->memory.Create(bytes);
    if (error != 0) return error;
    const ObjectRecord record{kMagic, object->kind, object->memory.Number()};
    const ssize_t written = pwrite(object->file.Get(), &record, sizeof record, 0);
    if (written != sizeof record) return written < 0 ? errno : ENOSPC;
    return fstat(object->file.Get(), &object->status) == 0 ? 0 : errno;
}

// Takes up a file that another process made. An errno value.
int AdoptFile(NamedObject *object) {
    ObjectRecord record{};
    if (pread(object->file.Get(), &record, sizeof record, 0) != sizeof record) return EINVAL;
    if (record.magic != kMagic) return EINVAL;
    if (record.kind != object->kind) return EEXIST;
    return object->memory.Open(record.segment);
}

void Discard(NamedObject *object) {
    pthread_mutex_destroy(&object->threads);
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
    size_t bytes;
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
    int error = InitializeMutex(&object->threads);
    if (error != 0) {
        delete object;
        return error;
    }
    if (file.IsOpen()) {
        object->file = std::move(file);
        object->status = status;
        error = AdoptFile(object);
    } else {
        error = CreateFile(membership->space, request.bytes, object);
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
    UnlockOrLeave(membership, isLocked);
}

}  // namespace

Handle OpenObject(const char *name, ObjectKind kind, size_t bytes, Absent absent) {
    if (!IsValidName(name) || bytes > PTRDIFF_MAX) {
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
    const int error = OpenIn(membership, {name, kind, bytes, absent}, &opened);
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
