// SPDX-License-Identifier: BSD-2-Clause

#include "src/platform/linux/hosts.h"

#include <fcntl.h>

#include <atomic>

#include "src/platform/linux/last_error.h"
#include "src/platform/platform.h"

namespace aiplc::platform {

namespace {

constexpr int kHostsFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;

std::atomic<bool> isServer{false};

enum class Presence { none, some, failed };

// The hosts file of the environment's namespace, if there is one.
Presence OpenHosts(Descriptor *hosts) {
    Namespace space;
    if (space.Open(Absent::fail)) {
        *hosts = Descriptor(openat(space.Directory(), kHostsFile, kHostsFlags));
        if (hosts->IsOpen()) return Presence::some;
    }
    return errno == ENOENT ? Presence::none : Presence::failed;
}

}  // namespace

bool JoinHosts(const Namespace &space, Descriptor *presence) {
    if (isServer.load()) return true;
    for (;;) {
        Descriptor file(openat(space.Directory(), kHostsFile, kHostsFlags | O_CREAT, 0600));
        if (!file.IsOpen()) return false;
        if (LockFile(file, LOCK_SH | LOCK_NB)) {
            *presence = std::move(file);
            return true;
        }
        if (errno != EWOULDBLOCK) return false;
        // A server has just found all hosts gone and may never let go of this file again.
        if (unlinkat(space.Directory(), kHostsFile, 0) != 0) return false;
    }
}

bool HasHosts(const Descriptor &hosts) {
    if (LockFile(hosts, LOCK_EX | LOCK_NB)) return false;
    // A server that has just found all hosts gone keeps others out of a shared lock too.
    if (!LockFile(hosts, LOCK_SH | LOCK_NB)) return false;
    return !LockFile(hosts, LOCK_EX | LOCK_NB);  // it may have let go meanwhile
}

void JoinAsServer() {
    isServer.store(true);
}

bool WaitHostsGone() {
    for (;;) {
        Descriptor hosts;
        Presence presence = OpenHosts(&hosts);
        if (presence == Presence::some && !LockFile(hosts, LOCK_EX)) return Fail(errno);

        // A host that came meanwhile has put a new file in the place of this one.
        Descriptor current;
        if (presence == Presence::some) presence = OpenHosts(&current);
        if (presence == Presence::none) return true;
        if (presence == Presence::failed) return Fail(errno);

        struct stat locked {};
        struct stat named {};
        if (fstat(hosts.Get(), &locked) != 0 || fstat(current.Get(), &named) != 0) {
            return Fail(errno);
        }
        if (IsSameFile(locked, named)) return true;
    }
}

}  // namespace aiplc::platform
