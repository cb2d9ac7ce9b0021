// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_POSIX_MUTEX_H
#define AIPLC_POSIX_MUTEX_H

#include "platform/posix/named_object.h"

namespace aiplc::platform {

// Makes the mutex of a new object's state; an errno value, 0 on success.
int InitializeMutex(pthread_mutex_t *mutex);

// Wait for a mutex.
uint32_t WaitMutex(NamedObject &mutex, uint32_t timeoutMs);

// Readies a mutex for the loss of this process's last handle: gives it up if the calling thread
// owns it. False when another thread of this process does (or did until it ended): the state must
// then stay mapped, as the kernel's list of mutexes to abandon may point into it.
bool DetachMutex(NamedObject &mutex);

}  // namespace aiplc::platform

#endif
