// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_LINUX_LOCK_HOLDERS_H
#define AIPLC_LINUX_LOCK_HOLDERS_H

namespace aiplc::platform {

// Whether the process holds a lock on a file of this directory, as every process does that has a
// handle in a namespace. The system tells it of any process (/proc/locks). Throws std::bad_alloc.
bool HoldsLockIn(int directory, unsigned long process);

}  // namespace aiplc::platform

#endif
