// SPDX-License-Identifier: BSD-2-Clause
//
// Shared memory without a file: a System V segment, which keeps its size. Any process of the user
// could cut a file short, and the next access of everyone who has it mapped would end in SIGBUS.

#ifndef AIPLC_LINUX_SEGMENT_H
#define AIPLC_LINUX_SEGMENT_H

#include <cstddef>
#include <cstdint>

namespace aiplc::platform {

// One attachment of a segment. The segment goes with its last attachment, however that ends, and
// can be attached by its number as long as there is one.
//
// In this process a private page follows the shared ones: links that belong to a word of the shared
// memory lie there, where no other process can change them.
class Segment {
  public:
    Segment() = default;
    ~Segment();
    Segment(const Segment &) = delete;
    Segment &operator=(const Segment &) = delete;

    // Makes a segment of zeros whose memory is there. An errno value, 0 on success. A process that
    // is killed within this call may leave the segment behind.
    int Create(size_t bytes);
    // Attaches the segment with this number, which another process wrote: EINVAL unless there is
    // one, it belongs to the effective user and nobody else may use it.
    int Open(int32_t number);

    int32_t Number() const { return m_number; }
    size_t Bytes() const { return m_bytes; }  // as it was made
    void *Data() const { return m_data; }
    // End of the shared pages, where the private one begins.
    std::byte *End() const { return static_cast<std::byte *>(m_data) + m_mappedBytes; }

    // The same memory at another address, for Detach; null with errno set.
    void *AttachAgain() const;
    static void Detach(void *data);

  private:
    int Attach(int number);

    int32_t m_number = -1;
    size_t m_bytes = 0;
    size_t m_mappedBytes = 0;  // whole pages
    void *m_data = nullptr;
};

size_t PageBytes();

}  // namespace aiplc::platform

#endif
