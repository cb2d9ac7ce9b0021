// SPDX-License-Identifier: BSD-2-Clause

#include <cerrno>
#include <mutex>
#include <new>

#include "src/platform/linux/last_error.h"
#include "src/platform/linux/named_object.h"

namespace aiplc::platform {

namespace {

// Views are given back by address alone, and only what is one may be. A view outlives its handle.
struct View {
    View *next;
    void *address;
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
    auto *view = new (std::nothrow) View{nullptr, nullptr};
    if (view == nullptr || size == nullptr) {
        Fail(size == nullptr ? EINVAL : ENOMEM);
        delete view;
        return nullptr;
    }
    view->address = object->memory.AttachAgain();
    if (view->address == nullptr) {
        Fail(errno);
        delete view;
        return nullptr;
    }
    *size = object->memory.Bytes();
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
    Segment::Detach(found->address);
    delete found;
    return true;
}

}  // namespace aiplc::platform
