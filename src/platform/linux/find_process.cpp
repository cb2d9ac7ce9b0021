// SPDX-License-Identifier: BSD-2-Clause

#include <dirent.h>
#include <fcntl.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "src/platform/linux/last_error.h"
#include "src/platform/linux/lock_holders.h"
#include "src/platform/linux/namespace.h"
#include "src/platform/platform.h"

namespace aiplc::platform {

namespace {

constexpr std::string_view kDeletedMark = " (deleted)";
// How long a process may take from its exec until its environment can be read.
constexpr uint32_t kExecMilliseconds = 100;

// The path a link below /proc stands for, without the mark of a file that has been removed since;
// its length, or 0 with errno set.
size_t ReadExecutable(int directory, const char *link, char *buffer, size_t capacity) {
    const ssize_t result = readlinkat(directory, link, buffer, capacity);
    if (result < 0) return 0;
    auto length = static_cast<size_t>(result);
    if (length == capacity) {
        errno = ENAMETOOLONG;
        return 0;
    }
    if (std::string_view(buffer, length).ends_with(kDeletedMark)) length -= kDeletedMark.size();
    buffer[length] = '\0';
    return length;
}

// One directory below /proc. A process that ends, or is not ours to look at, is no match.
//
// One that may not be traced, because its executable has capabilities or may not be read, shows its
// command line and its locks only.
class Process {
  public:
    Process(Descriptor directory, unsigned long id) : m_directory(std::move(directory)), m_id(id) {}

    // By the executable's name, or by the name that it was started under, which may be a link's.
    bool IsNamed(std::string_view name) const {
        char path[PATH_MAX];
        const size_t length = ReadExecutable(m_directory.Get(), "exe", path, sizeof path);
        if (length == 0 && errno != EACCES && errno != EPERM) return false;
        if (length != 0 && NameIn({path, length}) == name) return true;
        // Its entries end with NUL.
        return NameIn(Read("cmdline").c_str()) == name;
    }

    bool IsInNamespace(std::string_view name) const {
        struct stat status {};
        const bool isOurs = fstat(m_directory.Get(), &status) == 0 && status.st_uid == geteuid();
        if (isOurs && CanRead("environ")) return IsStartedHere(name);
        Namespace space;
        return space.Open(Absent::fail) && HoldsLockIn(space.Directory(), m_id);
    }

  private:
    static std::string_view NameIn(std::string_view path) {
        return path.substr(path.rfind('/') + 1);
    }

    // By its environment, which shows a moment later than its executable. A process that has ended
    // meanwhile has neither.
    bool IsStartedHere(std::string_view name) const {
        for (uint32_t waited = 0; waited < kExecMilliseconds && Read("cmdline").empty(); ++waited) {
            if (!IsNamed(name)) return false;
            Sleep(1);
        }
        const std::string environment = Read("environ");
        return IsNamed(name) && IsOwnNamespace(Entry(environment, kNamespaceVariable),
                                               Entry(environment, kRuntimeDirectoryVariable));
    }

    bool CanRead(const char *name) const {
        return Descriptor(openat(m_directory.Get(), name, O_RDONLY | O_CLOEXEC)).IsOpen();
    }

    // Content of a file, as far as it can be read.
    std::string Read(const char *name) const {
        std::string content;
        const Descriptor file(openat(m_directory.Get(), name, O_RDONLY | O_CLOEXEC));
        char block[4096];
        while (file.IsOpen()) {
            const ssize_t count = read(file.Get(), block, sizeof block);
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) break;
            content.append(block, static_cast<size_t>(count));
        }
        return content;
    }

    // The value of a variable in an environment, entries that end with NUL; null when unset.
    static const char *Entry(const std::string &environment, std::string_view variable) {
        for (size_t at = 0; at < environment.size();) {
            const char *entry = environment.c_str() + at;
            const std::string_view text(entry);
            if (text.starts_with(variable) && text.substr(variable.size()).starts_with('='))
                return entry + variable.size() + 1;
            at += text.size() + 1;
        }
        return nullptr;
    }

    Descriptor m_directory;
    unsigned long m_id;
};

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};

FindStatus Find(std::string_view name, uint32_t *id) {
    const std::unique_ptr<DIR, CloseDirectory> processes(opendir("/proc"));
    if (processes == nullptr) {
        Fail(errno);
        return FindStatus::failed;
    }
    while (const dirent *entry = readdir(processes.get())) {
        char *end = nullptr;
        const unsigned long number = std::strtoul(entry->d_name, &end, 10);
        if (number == 0 || *end != '\0') continue;
        const Process process(Descriptor(openat(dirfd(processes.get()), entry->d_name,
                                                O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
                              number);
        if (process.IsNamed(name) && process.IsInNamespace(name)) {
            *id = static_cast<uint32_t>(number);
            return FindStatus::found;
        }
    }
    Fail(ESRCH);
    return FindStatus::absent;
}

}  // namespace

FindStatus FindProcess(const char *name, uint32_t *id) {
    if (name == nullptr || id == nullptr) {
        Fail(EINVAL);
        return FindStatus::failed;
    }
    try {
        return Find(name, id);
    } catch (const std::bad_alloc &) {
        Fail(ENOMEM);
        return FindStatus::failed;
    }
}

uint32_t ExecutablePath(char *buffer, uint32_t capacity) {
    const size_t length = buffer == nullptr || capacity == 0
                              ? (errno = EINVAL, 0)
                              : ReadExecutable(AT_FDCWD, "/proc/self/exe", buffer, capacity);
    if (length == 0) Fail(errno);
    return static_cast<uint32_t>(length);
}

}  // namespace aiplc::platform
