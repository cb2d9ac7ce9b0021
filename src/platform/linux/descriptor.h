// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_LINUX_DESCRIPTOR_H
#define AIPLC_LINUX_DESCRIPTOR_H

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace aiplc::platform {

// Owns a file descriptor. Closing leaves errno as it was, so that a failure can be reported after
// what it leaves behind has been tidied up.
class Descriptor {
  public:
    explicit Descriptor(int descriptor = -1) : m_descriptor(descriptor) {}
    Descriptor(Descriptor &&other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other) {
            Close();
            m_descriptor = std::exchange(other.m_descriptor, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { Close(); }

    int Get() const { return m_descriptor; }
    bool IsOpen() const { return m_descriptor >= 0; }
    void Close() {
        if (m_descriptor < 0) return;
        const int error = errno;
        close(std::exchange(m_descriptor, -1));
        errno = error;
    }

  private:
    int m_descriptor;
};

// flock that a signal does not interrupt; false with errno set. The lock belongs to the open file
// description: two descriptors of one process exclude each other as those of two processes do.
inline bool LockFile(const Descriptor &file, int operation) {
    while (flock(file.Get(), operation) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

inline bool IsSameFile(const struct stat &left, const struct stat &right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

}  // namespace aiplc::platform

#endif
