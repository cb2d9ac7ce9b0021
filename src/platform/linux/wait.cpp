// SPDX-License-Identifier: BSD-2-Clause

#include <cerrno>

#include "src/platform/linux/event.h"
#include "src/platform/linux/last_error.h"
#include "src/platform/linux/mutex.h"
#include "src/platform/platform.h"

namespace aiplc::platform {

uint32_t Wait(Handle handle, uint32_t timeoutMs) {
    NamedObject *object = ObjectOf(handle);
    if (object == nullptr) return kWaitFailed;
    switch (object->kind) {
        case ObjectKind::event:
            return WaitEvent(*object, timeoutMs);
        case ObjectKind::mutex:
            return WaitMutex(*object, timeoutMs);
        case ObjectKind::mapping:
            break;
    }
    return FailWait(EBADF);
}

}  // namespace aiplc::platform
