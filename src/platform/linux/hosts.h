// SPDX-License-Identifier: BSD-2-Clause
//
// Who is there to be served. Every process with a handle in a namespace, unless it declared itself
// a server, holds a shared lock on the file .hosts of that namespace. The kernel drops the lock
// with the process, however that ends, so a server that waits for the exclusive lock wakes when the
// last host has gone.

#ifndef AIPLC_LINUX_HOSTS_H
#define AIPLC_LINUX_HOSTS_H

#include "src/platform/linux/namespace.h"

namespace aiplc::platform {

inline constexpr char kHostsFile[] = ".hosts";

// Counts this process among the hosts for as long as presence is open; the file goes with the
// namespace's other stale ones. A server is not counted,
// which is success too. The caller holds the lock of the namespace; false with errno set.
bool JoinHosts(const Namespace &space, Descriptor *presence);

// Whether a host holds its lock on this file, which is open a second time for the question. The
// caller holds the lock of the namespace.
bool HasHosts(const Descriptor &hosts);

}  // namespace aiplc::platform

#endif
