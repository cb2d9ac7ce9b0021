// SPDX-License-Identifier: BSD-2-Clause

#include <cerrno>

#include "platform/platform.h"
#include "platform/posix/event.h"
#include "platform/posix/last_error.h"
#include "platform/posix/mutex.h"

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
