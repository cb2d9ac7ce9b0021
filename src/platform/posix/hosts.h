// SPDX-License-Identifier: BSD-2-Clause
//
// Who is there to be served. Every process with a handle in a namespace, unless it declared itself
// a server, holds a shared lock on the file .hosts of that namespace. The kernel drops the lock
// with the process, however that ends, so a server that waits for the exclusive lock wakes when the
// last host has gone.

#ifndef AIPLC_POSIX_HOSTS_H
#define AIPLC_POSIX_HOSTS_H

#include "platform/posix/namespace.h"

namespace aiplc::platform {

// Counts this process among the hosts for as long as presence is open. A server is not counted,
// which is success too. The caller holds the lock of the namespace; false with errno set.
bool JoinHosts(const Namespace &space, Descriptor *presence);

// Takes this process off again and removes the file when it was the last. The caller holds the
// lock.
void LeaveHosts(const Namespace &space, Descriptor presence);

}  // namespace aiplc::platform

#endif
