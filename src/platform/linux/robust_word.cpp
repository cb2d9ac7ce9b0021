// SPDX-License-Identifier: BSD-2-Clause

#include "src/platform/linux/robust_word.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "src/platform/linux/deadline.h"

namespace aiplc::platform {

namespace {

// The calling thread's list, which the C library registered for its own robust mutexes: a circle of
// links that begins in the head. Bit 0 of a link says that the word behind it is of another kind.
// On 64-bit systems each link but the head has one back to its predecessor straight before it.
using Link = robust_list *;

#if defined(__PTHREAD_MUTEX_HAVE_PREV)
constexpr bool kHasBackLinks = __PTHREAD_MUTEX_HAVE_PREV != 0;
#else
constexpr bool kHasBackLinks = sizeof(void *) == 8;
#endif
constexpr int kMaxListed = 2048;  // the kernel looks at no more
// With others that write the word meanwhile; only one that does nothing else causes as many.
constexpr int kMaxCollisions = 64;

// Keeps the compiler from moving accesses that the kernel has to find in this order when the thread
// ends between two of them.
void KeepOrder() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

// The thread's list, or null where a link of a word would not lie in the private page.
robust_list_head *OwnList() {
    thread_local robust_list_head *list = nullptr;
    if (list != nullptr) return list;
    robust_list_head *found = nullptr;
    size_t bytes = 0;
    if (syscall(SYS_get_robust_list, 0, &found, &bytes) != 0 || found == nullptr) return nullptr;
    const long distance = -found->futex_offset;
    constexpr auto kLinkBytes = static_cast<long>(sizeof(void *));
    constexpr long kFirst = long{kRobustWordBytes} + (kHasBackLinks ? kLinkBytes : 0);
    constexpr long kLast = 256;
    if (distance < kFirst || distance > kLast || distance % kLinkBytes != 0) return nullptr;
    list = found;
    return list;
}

Link LinkOf(const robust_list_head &list, uint32_t *word) {
    return reinterpret_cast<Link>(reinterpret_cast<char *>(word) - list.futex_offset);
}

Link WithoutMark(Link link) {
    return reinterpret_cast<Link>(  // NOLINT(performance-no-int-to-ptr)
        reinterpret_cast<std::uintptr_t>(link) & ~std::uintptr_t{1});
}

Link &BackLink(Link link) {
    return reinterpret_cast<Link *>(WithoutMark(link))[-1];
}

// Makes before the predecessor of link.
void LinkBack(robust_list_head &list, Link link, Link before) {
    if (kHasBackLinks && WithoutMark(link) != &list.list) BackLink(link) = before;
}

void Enter(robust_list_head &list, Link link) {
    link->next = list.list.next;
    LinkBack(list, link, &list.list);
    LinkBack(list, link->next, link);
    KeepOrder();
    list.list.next = link;
}

Link Predecessor(robust_list_head &list, Link link) {
    if (kHasBackLinks) return WithoutMark(BackLink(link));
    Link before = &list.list;
    for (int i = 0; i < kMaxListed && WithoutMark(before->next) != link; ++i)
        before = WithoutMark(before->next);
    return before;
}

void Leave(robust_list_head &list, Link link) {
    Link before = Predecessor(list, link);
    if (WithoutMark(before->next) != link) return;
    LinkBack(list, link->next, before);
    before->next = link->next;
}

// The kernel looks at this besides the list, should the thread end within the scope: a word
// that it owns and has not entered yet, or no longer.
class Pending {
  public:
    Pending(robust_list_head &list, Link link) : m_list(list) { Set(link); }
    ~Pending() { Set(nullptr); }
    Pending(const Pending &) = delete;
    Pending &operator=(const Pending &) = delete;

  private:
    void Set(Link link) const {
        KeepOrder();
        std::atomic_ref(m_list.list_op_pending).store(link, std::memory_order_relaxed);
        KeepOrder();
    }
    robust_list_head &m_list;
};

// The system's number of the calling thread, 0 until it is asked for: the system call takes as long
// as all else that a free lock costs. A forked process has another one.
thread_local uint32_t ownId = 0;
const int kForgetsWhenForked = pthread_atfork(nullptr, nullptr, [] { ownId = 0; });

uint32_t OwnId() {
    if (ownId == 0 || kForgetsWhenForked != 0) ownId = static_cast<uint32_t>(syscall(SYS_gettid));
    return ownId;
}

int SleepWhile(uint32_t *word, uint32_t value, const timespec *deadline) {
    const long result = syscall(SYS_futex, word, FUTEX_WAIT_BITSET, value, deadline, nullptr,
                                FUTEX_BITSET_MATCH_ANY);
    return result == 0 ? 0 : errno;
}

// Makes the word this thread's if it is nobody's: an errno value, EBUSY when it is another's and
// EAGAIN when it has changed. *seen receives the word as it is then.
int Claim(uint32_t *word, uint32_t claim, uint32_t *seen) {
    const std::atomic_ref<uint32_t> shared(*word);
    *seen = shared.load();
    if ((*seen & FUTEX_TID_MASK) != 0) return EBUSY;
    const bool isAbandoned = (*seen & FUTEX_OWNER_DIED) != 0;
    if (!shared.compare_exchange_strong(*seen, claim | (*seen & FUTEX_WAITERS))) return EAGAIN;
    return isAbandoned ? EOWNERDEAD : 0;
}

int ClaimNow(uint32_t *word, uint32_t id) {
    uint32_t seen = 0;
    int error = EAGAIN;
    for (int i = 0; error == EAGAIN && i < kMaxCollisions; ++i)
        error = Claim(word, id, &seen);
    return error == EBUSY || error == EAGAIN ? ETIMEDOUT : error;
}

int ClaimWithin(uint32_t *word, uint32_t id, const timespec *deadline) {
    uint32_t claim = id;
    for (int turns = 0;; ++turns) {
        uint32_t seen = 0;
        int error = Claim(word, claim, &seen);
        if (error == 0 || error == EOWNERDEAD) return error;
        if (error == EBUSY) {
            const uint32_t waited = seen | FUTEX_WAITERS;
            if (seen == waited || std::atomic_ref(*word).compare_exchange_strong(seen, waited)) {
                error = SleepWhile(word, waited, deadline);
                // Others may still sleep: the next one to unlock must wake one of them.
                claim = id | FUTEX_WAITERS;
            }
        }
        const bool isUsual = error == 0 || error == EBUSY || error == EAGAIN || error == EINTR;
        if (!isUsual) return error;
        // The wait itself ends at the deadline, but a word that changes all the time prevents it.
        if (turns > kMaxCollisions && deadline != nullptr && !IsAhead(*deadline)) return ETIMEDOUT;
    }
}

template <typename ClaimBy>
int Lock(uint32_t *word, ClaimBy claim) {
    robust_list_head *list = OwnList();
    if (list == nullptr) return ENOTSUP;
    Link link = LinkOf(*list, word);
    const Pending pending(*list, link);
    const int error = claim(OwnId());
    if (error == 0 || error == EOWNERDEAD) Enter(*list, link);
    return error;
}

}  // namespace

int LockWord(uint32_t *word, const timespec *deadline) {
    return Lock(word, [=](uint32_t id) { return ClaimWithin(word, id, deadline); });
}

int TryLockWord(uint32_t *word) {
    return Lock(word, [=](uint32_t id) { return ClaimNow(word, id); });
}

void UnlockWord(uint32_t *word) {
    robust_list_head &list = *OwnList();
    Link link = LinkOf(list, word);
    const Pending pending(list, link);
    Leave(list, link);
    KeepOrder();
    const uint32_t before = std::atomic_ref(*word).exchange(0);
    if ((before & FUTEX_WAITERS) != 0) syscall(SYS_futex, word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

}  // namespace aiplc::platform
