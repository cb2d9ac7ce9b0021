// SPDX-License-Identifier: BSD-2-Clause

#include "src/platform/linux/lock_holders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "src/platform/linux/namespace.h"

namespace aiplc::platform {

namespace {

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

struct FileLock {
    unsigned long process = 0;
    unsigned deviceMajor = 0;
    unsigned deviceMinor = 0;
    unsigned long long file = 0;
};

// Such as "1: FLOCK  ADVISORY  READ 4711 00:1a:170350 0 EOF"; a waiting one has "->" behind the
// number and is no holder.
bool Parse(const char *line, FileLock *lock) {
    return std::sscanf(line, "%*u: FLOCK %*s %*s %lu %x:%x:%llu", &lock->process,
                       &lock->deviceMajor, &lock->deviceMinor, &lock->file) == 4;
}

}  // namespace

bool HoldsLockIn(int directory, unsigned long process) {
    struct stat folder {};
    if (fstat(directory, &folder) != 0) return false;
    std::vector<unsigned long long> files;
    ForEachEntry(directory, [&](const char *name) {
        struct stat status {};
        if (fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode))
            files.push_back(status.st_ino);
    });
    const std::unique_ptr<std::FILE, CloseFile> locks(std::fopen("/proc/locks", "re"));
    char line[256];
    FileLock lock;
    while (locks != nullptr && std::fgets(line, sizeof line, locks.get()) != nullptr) {
        if (Parse(line, &lock) && lock.process == process &&
            lock.deviceMajor == major(folder.st_dev) && lock.deviceMinor == minor(folder.st_dev) &&
            std::ranges::find(files, lock.file) != files.end())
            return true;
    }
    return false;
}

}  // namespace aiplc::platform
