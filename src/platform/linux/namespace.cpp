// SPDX-License-Identifier: BSD-2-Clause

#include "src/platform/linux/namespace.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "src/platform/linux/deadline.h"
#include "src/platform/linux/hosts.h"

namespace aiplc::platform {

namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kPrivateMode = 0700;
constexpr mode_t kPermissions = 0777;
// A directory that vanishes between being opened and being locked is made anew; an end to that
// shows only on a file system whose inode numbers do not last.
constexpr int kMaxAttempts = 1000;
// The lock is held for microseconds.
constexpr uint32_t kLockTimeoutMs = 2000;
constexpr timespec kLockPause{0, 200'000};

bool IsValidName(std::string_view name) {
    const auto isAllowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '.' || c == '_' || c == '-';
    };
    return !name.empty() && name.size() < kNameBytes && name.front() != '.' &&
           std::all_of(name.begin(), name.end(), isAllowed);
}

// Name of the namespace that the text of the environment variable (null when unset) asks for.
std::string_view NamespaceName(const char *variable) {
    return variable == nullptr || variable[0] == '\0' ? "default" : variable;
}

// The user's runtime directory that the environment variable names (null when unset), or a closed
// descriptor when there is none to be trusted.
Descriptor OpenRuntimeDirectory(const char *path) {
    if (path == nullptr || path[0] != '/') return Descriptor();
    Descriptor directory(open(path, kDirectoryFlags));
    struct stat status {};
    struct statfs system {};
    const bool isTrusted = directory.IsOpen() && fstat(directory.Get(), &status) == 0 &&
                           status.st_uid == geteuid() &&
                           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    const bool isInMemory = isTrusted && fstatfs(directory.Get(), &system) == 0 &&
                            (static_cast<uint32_t>(system.f_type) == TMPFS_MAGIC ||
                             static_cast<uint32_t>(system.f_type) == RAMFS_MAGIC);
    if (!isInMemory) return Descriptor();
    return directory;
}

// Opens a directory, made before if asked for and then noted in *made.
Descriptor OpenPrivateDirectory(int parent, const char *name, Absent absent, bool *made = nullptr) {
    if (absent == Absent::create) {
        const bool isNew = mkdirat(parent, name, kPrivateMode) == 0;
        if (!isNew && errno != EEXIST) return Descriptor();
        if (made != nullptr) *made = isNew;
    }
    Descriptor directory(openat(parent, name, kDirectoryFlags));
    if (!directory.IsOpen()) {
        if (errno == ELOOP) errno = ENOTDIR;
        return Descriptor();
    }
    struct stat status {};
    if (fstat(directory.Get(), &status) != 0) return Descriptor();
    if (status.st_uid != geteuid() || (status.st_mode & kPermissions) != kPrivateMode) {
        errno = EPERM;
        return Descriptor();
    }
    return directory;
}

Descriptor OpenBase(Absent absent) {
    const Descriptor runtime = OpenRuntimeDirectory(std::getenv(kRuntimeDirectoryVariable));
    if (runtime.IsOpen()) return OpenPrivateDirectory(runtime.Get(), "aiplc", absent);

    const Descriptor shared(open("/dev/shm", kDirectoryFlags));
    if (!shared.IsOpen()) return Descriptor();
    char name[32];
    (void)std::snprintf(name, sizeof name, "aiplc-%lu", static_cast<unsigned long>(geteuid()));
    return OpenPrivateDirectory(shared.Get(), name, absent);
}

void UnlinkSame(int directory, const char *entry, const Descriptor &file) {
    struct stat named {};
    struct stat held {};
    if (fstatat(directory, entry, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        fstat(file.Get(), &held) == 0 && S_ISREG(held.st_mode) && IsSameFile(named, held)) {
        unlinkat(directory, entry, 0);
    }
}

void RemoveStaleFiles(int directory) {
    ForEachEntry(directory, [directory](const char *name) {
        const Descriptor file(openat(directory, name, O_RDWR | O_CLOEXEC | O_NOFOLLOW));
        if (!file.IsOpen()) return;
        const bool isStale = std::strcmp(name, kHostsFile) == 0 ? !HasHosts(file)
                                                                : LockFile(file, LOCK_EX | LOCK_NB);
        if (isStale) UnlinkSame(directory, name, file);
    });
}

// Removes the namespaces that killed processes have left. One in use is locked or not empty.
void RemoveStaleNamespaces(int base) {
    ForEachEntry(base, [base](const char *name) {
        if (!IsValidName(name)) return;
        const Descriptor directory = OpenPrivateDirectory(base, name, Absent::fail);
        if (!directory.IsOpen() || !LockFile(directory, LOCK_EX | LOCK_NB)) return;
        RemoveStaleFiles(directory.Get());
        unlinkat(base, name, AT_REMOVEDIR);
    });
}

}  // namespace

void ForEachEntry(int directory, const std::function<void(const char *)> &visit) {
    const int listed = openat(directory, ".", kDirectoryFlags);
    DIR *entries = listed < 0 ? nullptr : fdopendir(listed);
    if (entries == nullptr) {
        if (listed >= 0) close(listed);
        return;
    }
    while (const dirent *entry = readdir(entries))
        visit(entry->d_name);
    closedir(entries);
}

bool IsOwnNamespace(const char *name, const char *runtimeDirectory) {
    if (NamespaceName(name) != NamespaceName(std::getenv(kNamespaceVariable))) return false;
    const Descriptor theirs = OpenRuntimeDirectory(runtimeDirectory);
    const Descriptor own = OpenRuntimeDirectory(std::getenv(kRuntimeDirectoryVariable));
    if (!theirs.IsOpen() || !own.IsOpen()) return theirs.IsOpen() == own.IsOpen();
    struct stat first {};
    struct stat second {};
    return fstat(theirs.Get(), &first) == 0 && fstat(own.Get(), &second) == 0 &&
           IsSameFile(first, second);
}

bool Namespace::Open(Absent absent) {
    const std::string_view name = NamespaceName(std::getenv(kNamespaceVariable));
    if (!IsValidName(name)) {
        errno = EINVAL;
        return false;
    }
    std::memcpy(m_name, name.data(), name.size());
    m_name[name.size()] = '\0';

    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        m_base = OpenBase(absent);
        if (!m_base.IsOpen()) return false;
        bool isNew = false;
        m_directory = OpenPrivateDirectory(m_base.Get(), m_name, absent, &isNew);
        if (!m_directory.IsOpen()) {
            if (absent == Absent::create && errno == ENOENT) continue;
            return false;
        }
        if (!Lock() || fstat(m_directory.Get(), &m_status) != 0) return false;
        struct stat named {};
        if (fstatat(m_base.Get(), m_name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
            IsSameFile(named, m_status)) {
            if (isNew) RemoveStaleNamespaces(m_base.Get());
            return true;
        }
    }
    errno = EAGAIN;
    return false;
}

bool Namespace::Lock() {
    const timespec deadline = DeadlineAfter(kLockTimeoutMs);
    while (!LockFile(m_directory, LOCK_EX | LOCK_NB)) {
        if (errno != EWOULDBLOCK) return false;
        if (!IsAhead(deadline)) {
            errno = ETIMEDOUT;
            return false;
        }
        clock_nanosleep(CLOCK_MONOTONIC, 0, &kLockPause, nullptr);
    }
    return true;
}

void Namespace::Unlink(const char *entry, const Descriptor &file) const {
    UnlinkSame(Directory(), entry, file);
}

void Namespace::RemoveStale() const {
    RemoveStaleFiles(Directory());
}

void Namespace::RemoveIfEmpty() const {
    const int error = errno;
    unlinkat(m_base.Get(), m_name, AT_REMOVEDIR);
    errno = error;
}

}  // namespace aiplc::platform
