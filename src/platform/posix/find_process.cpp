// SPDX-License-Identifier: BSD-2-Clause

#include <dirent.h>
#include <fcntl.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "platform/posix/last_error.h"
#include "platform/posix/namespace.h"

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
class Process {
  public:
    explicit Process(Descriptor directory) : m_directory(std::move(directory)) {}

    bool IsOurs() const {
        struct stat status {};
        return fstat(m_directory.Get(), &status) == 0 && status.st_uid == geteuid();
    }

    bool IsNamed(std::string_view name) const {
        char path[PATH_MAX];
        const size_t length = ReadExecutable(m_directory.Get(), "exe", path, sizeof path);
        const std::string_view executable(path, length);
        return length != 0 && executable.substr(executable.rfind('/') + 1) == name;
    }

    bool IsInNamespace(std::string_view space, std::string_view name) const {
        std::string environment;
        bool isReadable = ReadEnvironment(&environment);
        // The executable shows a moment before its environment does. A process that has ended
        // meanwhile has neither.
        for (uint32_t waited = 0;
             isReadable && environment.empty() && waited < kExecMilliseconds && IsNamed(name);
             ++waited) {
            Sleep(1);
            isReadable = ReadEnvironment(&environment);
        }
        return isReadable && IsNamed(name) && NamespaceIn(environment) == space;
    }

  private:
    bool ReadEnvironment(std::string *environment) const {
        environment->clear();
        const Descriptor file(openat(m_directory.Get(), "environ", O_RDONLY | O_CLOEXEC));
        if (!file.IsOpen()) return false;
        char block[4096];
        for (;;) {
            const ssize_t count = read(file.Get(), block, sizeof block);
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return count == 0;
            environment->append(block, static_cast<size_t>(count));
        }
    }

    // The namespace that an environment, entries that end with NUL, names.
    static std::string_view NamespaceIn(const std::string &environment) {
        const std::string key = std::string(kNamespaceVariable) + '=';
        for (size_t at = 0; at < environment.size();) {
            const char *entry = environment.c_str() + at;
            if (std::strncmp(entry, key.c_str(), key.size()) == 0) {
                return NamespaceName(entry + key.size());
            }
            at += std::strlen(entry) + 1;
        }
        return NamespaceName(nullptr);
    }

    Descriptor m_directory;
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
    const std::string space(NamespaceName(std::getenv(kNamespaceVariable)));
    while (const dirent *entry = readdir(processes.get())) {
        char *end = nullptr;
        const unsigned long number = std::strtoul(entry->d_name, &end, 10);
        if (number == 0 || *end != '\0') continue;
        const Process process(Descriptor(
            openat(dirfd(processes.get()), entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
        if (process.IsOurs() && process.IsNamed(name) && process.IsInNamespace(space, name)) {
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
