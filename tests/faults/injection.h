// SPDX-License-Identifier: BSD-2-Clause
//
// Makes the nth thing that can fail within calls of the library fail. The linker puts the wrappers
// of injection.cpp between the library and what it calls (ld --wrap); outside calls of the library,
// on other threads and in other processes nothing fails.

#ifndef AIPLC_TESTS_INJECTION_H
#define AIPLC_TESTS_INJECTION_H

#include <cstdint>
#include <string>

namespace aiplc::faults {

enum class Kind {
    memory,  // malloc, calloc, operator new
    system,  // calls of the operating system
};

struct Plan {
    Kind kind = Kind::memory;
    int64_t failing = 0;  // the how manyth, from 1 on; 0: none

    int64_t count = 0;      // how many there were so far
    std::string failed{};   // name of the one that failed
    int64_t allocated = 0;  // blocks that the library has not freed
};
inline Plan plan;

// Not within a call of the library as long as it lives: a call back.
class Outside {
  public:
    Outside();
    ~Outside();
    Outside(const Outside &) = delete;
    Outside &operator=(const Outside &) = delete;

  private:
    int m_depth;
};

// The process that StartDetachedProcess starts here: the worker's own protocol loop, which answers
// at once. Ends it.
void EndWorker();

}  // namespace aiplc::faults

#endif
