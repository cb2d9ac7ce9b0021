// SPDX-License-Identifier: BSD-2-Clause

#include <sys/mman.h>

#include <cerrno>
#include <mutex>
#include <new>

#include "platform/posix/last_error.h"
#include "platform/posix/named_object.h"

namespace aiplc::platform {

namespace {

// Views are given back by address alone, so their sizes are kept here. A view outlives its handle.
struct View {
    View *next;
    void *address;
    size_t bytes;
};

std::mutex viewsLock;
View *views = nullptr;

}  // namespace

Handle OpenMapping(const char *name) {
    return OpenObject(name, ObjectKind::mapping, 0, Absent::fail);
}

Handle CreateMapping(const char *name, size_t size) {
    if (size == 0) {
        Fail(EINVAL);
        return nullptr;
    }
    return OpenObject(name, ObjectKind::mapping, size, Absent::create);
}

void *MapView(Handle mapping, size_t *size) {
    NamedObject *object = ObjectOf(mapping, ObjectKind::mapping);
    if (object == nullptr) return nullptr;
    const size_t bytes = static_cast<size_t>(object->status.st_size) - StateBytes();
    auto *view = new (std::nothrow) View{nullptr, nullptr, bytes};
    if (view == nullptr || size == nullptr) {
        Fail(size == nullptr ? EINVAL : ENOMEM);
        delete view;
        return nullptr;
    }
    view->address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, object->file.Get(),
                         static_cast<off_t>(StateBytes()));
    if (view->address == MAP_FAILED) {
        Fail(errno);
        delete view;
        return nullptr;
    }
    *size = bytes;
    const std::lock_guard<std::mutex> guard(viewsLock);
    view->next = views;
    views = view;
    return view->address;
}

bool UnmapView(void *view) {
    const std::lock_guard<std::mutex> guard(viewsLock);
    View **link = &views;
    while (*link != nullptr && (*link)->address != view)
        link = &(*link)->next;
    View *found = *link;
    if (found == nullptr) return Fail(EINVAL);
    *link = found->next;
    munmap(found->address, found->bytes);
    delete found;
    return true;
}

}  // namespace aiplc::platform
