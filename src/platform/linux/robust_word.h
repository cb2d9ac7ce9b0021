// SPDX-License-Identifier: BSD-2-Clause
//
// A lock between processes in one word of shared memory that any of them may overwrite at any time.
//
// An owner enters the word into the kernel's list of the locks that its thread holds
// (set_robust_list(2)). When the thread ends, however, the kernel marks the word as abandoned and
// wakes a waiter. The list's links lie in private memory, and nothing that is read from the word is
// an address, so a word that another process overwrites costs at most the lock's service: waits
// time out, or two owners meet.

#ifndef AIPLC_LINUX_ROBUST_WORD_H
#define AIPLC_LINUX_ROBUST_WORD_H

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace aiplc::platform {

// The word's place before the end of the shared memory. The links follow at a distance that the C
// library fixes, which is longer and ends within the private page behind it (segment.h).
inline constexpr size_t kRobustWordBytes = 8;

// Takes the lock for the calling thread, at the latest at the deadline (null: for ever). An errno
// value: 0, EOWNERDEAD when it was taken over from an owner that ended, ETIMEDOUT, or ENOTSUP where
// the C library keeps no list to enter the word into. Threads of one process exclude each other
// beforehand: the links are the process's.
int LockWord(uint32_t *word, const timespec *deadline);
// The same without waiting; ETIMEDOUT when the lock is not free.
int TryLockWord(uint32_t *word);
// By the thread that owns it.
void UnlockWord(uint32_t *word);

}  // namespace aiplc::platform

#endif
