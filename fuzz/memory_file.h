// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_FUZZ_MEMORY_FILE_H
#define AIPLC_FUZZ_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <span>
#include <string>

#include "fuzz/arbitrary.h"

namespace aiplc::fuzz {

// A file of these bytes that lies in memory and has a path all the same.
class MemoryFile {
  public:
    explicit MemoryFile(std::span<const uint8_t> bytes)
        : m_descriptor(memfd_create("fuzz", MFD_CLOEXEC)) {
        Require(m_descriptor >= 0 &&
                write(m_descriptor, bytes.data(), bytes.size()) == std::ssize(bytes));
    }
    ~MemoryFile() { close(m_descriptor); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

  private:
    int m_descriptor;
};

}  // namespace aiplc::fuzz

#endif
