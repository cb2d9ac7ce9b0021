// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_LINUX_MUTEX_H
#define AIPLC_LINUX_MUTEX_H

#include "src/platform/linux/named_object.h"

namespace aiplc::platform {

// Makes the lock between the threads of this process; an errno value, 0 on success.
int InitializeMutex(pthread_mutex_t *threads);

// Wait for a mutex.
uint32_t WaitMutex(NamedObject &mutex, uint32_t timeoutMs);

// Readies an object for the loss of this process's last handle: gives a mutex up if the calling
// thread owns it. False when another thread of this process does: the memory must then stay, as
// that thread's list of locks points into it.
bool DetachMutex(NamedObject &mutex);

}  // namespace aiplc::platform

#endif
