// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_OPEN_DESCRIPTORS_H
#define AIPLC_TESTS_OPEN_DESCRIPTORS_H

#include <filesystem>
#include <iterator>

// How many files, sockets and the like this process has open, the one for counting them included.
inline std::ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

#endif
