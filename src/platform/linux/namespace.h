// SPDX-License-Identifier: BSD-2-Clause
//
// A namespace is a directory that holds one file per named object. It lies below
// $XDG_RUNTIME_DIR/aiplc, or below /dev/shm/aiplc-UID where there is no runtime directory of ours
// that lies in memory (dirty pages of a disk can stall a writer), and is called after the
// environment variable AIPLC_NAMESPACE ("default" when unset or empty: 1 to 64 letters, digits,
// '.',
// '_' and '-', no leading dot). Both levels have the mode 0700, belong to the effective user and
// are no symbolic links, or nothing below them is touched.
//
// The directory is made with its first object and removed with its last; when a new one is made,
// those that killed processes have left are removed. A process that looks at a directory's entries,
// adds or removes one holds its exclusive lock.

#ifndef AIPLC_LINUX_NAMESPACE_H
#define AIPLC_LINUX_NAMESPACE_H

#include <cstddef>
#include <functional>
#include <string_view>

#include "src/platform/linux/descriptor.h"

namespace aiplc::platform {

inline constexpr char kNamespaceVariable[] = "AIPLC_NAMESPACE";
inline constexpr char kRuntimeDirectoryVariable[] = "XDG_RUNTIME_DIR";
inline constexpr size_t kNameBytes = 64 + 1;

// How an absent directory or object is treated.
enum class Absent { fail, create };

// Whether a process in whose environment the two variables have these values (null when unset)
// meets this one in its namespace.
bool IsOwnNamespace(const char *name, const char *runtimeDirectory);

// Visits the names in a directory.
void ForEachEntry(int directory, const std::function<void(const char *)> &visit);

class Namespace {
  public:
    // Opens the environment's namespace and locks it; the lock lasts until Unlock or destruction.
    // False with errno: ENOENT absent, EINVAL bad name, EPERM wrong owner or mode, ENOTDIR,
    // ETIMEDOUT as Lock.
    bool Open(Absent absent);

    // Waits two seconds at most for its owner, then false with ETIMEDOUT: a process that was
    // stopped meanwhile must not hold up all others.
    bool Lock();
    void Unlock() { LockFile(m_directory, LOCK_UN); }

    int Directory() const { return m_directory.Get(); }
    bool IsSame(const Namespace &other) const { return IsSameFile(m_status, other.m_status); }
    // Removes the entry if it is this very file. For the holder of the lock, as the two below.
    void Unlink(const char *entry, const Descriptor &file) const;
    // Removes what killed processes have left: entries on which nobody holds a lock.
    void RemoveStale() const;
    void RemoveIfEmpty() const;

  private:
    Descriptor m_base;
    Descriptor m_directory;
    struct stat m_status {};  // of the directory
    char m_name[kNameBytes] = {};
};

}  // namespace aiplc::platform

#endif
