// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <span>
#include <thread>

#include "src/platform/linux/named_object.h"
#include "src/platform/platform.h"
#include "tests/support/child_process.h"

namespace aiplc::platform {
namespace {

constexpr auto kHoldBlock = [](Line line) {
    size_t size = 0;
    auto *bytes = static_cast<char *>(MapView(CreateMapping("Block", 10776), &size));
    if (bytes == nullptr || size < 10776 || bytes[0] != 0 || bytes[size - 1] != 0) return 1;
    bytes[10770] = 7;
    return line.Tell() && line.Await() ? 0 : 1;
};

TEST(NamedObject, VanishesWithItsLastHandleAlsoWhenTheHolderIsKilled) {
    EXPECT_TRUE(Child(kHoldBlock).isReady);
    EXPECT_EQ(OpenMapping("Block"), nullptr);
    EXPECT_EQ(LastError(), uint32_t{ENOENT});
    Child holder(kHoldBlock);
    EXPECT_TRUE(holder.isReady) << "new and zero again";
    EXPECT_EQ(CreateNamedMutex("Block"), nullptr) << "another kind";
    EXPECT_EQ(LastError(), uint32_t{EEXIST});
    Handle opened = OpenMapping("Block");
    Handle created = CreateMapping("Block", 100000);
    EXPECT_EQ(CreateNamedMutex("Block"), nullptr);
    holder.Kill();
    size_t size = 0;
    auto *bytes = static_cast<char *>(MapView(created, &size));
    EXPECT_LT(size, 100000U) << "an existing mapping keeps its size";
    EXPECT_TRUE(CloseHandle(created) && CloseHandle(opened));
    EXPECT_EQ(OpenMapping("Block"), nullptr) << "a view alone does not keep the name";
    EXPECT_EQ(bytes[10770], 7);
    EXPECT_TRUE(UnmapView(bytes));
    EXPECT_FALSE(UnmapView(bytes) || CloseHandle(created));
}

TEST(NamedObject, RefusesWhatIsNoNameNoHandleOrTooBig) {
    const std::string tooLong(65, 'a');
    for (const char *name : {"", ".x", "a/b", "a b", "\xC3\xA4", tooLong.c_str()}) {
        EXPECT_EQ(CreateNamedEvent(name), nullptr) << name;
        EXPECT_EQ(LastError(), uint32_t{EINVAL}) << name;
    }
    for (const size_t size : {size_t{0}, size_t{1} << 50, size_t{1} << 62, SIZE_MAX}) {
        EXPECT_EQ(CreateMapping("Huge", size), nullptr) << "its memory is there or it is an error";
        EXPECT_EQ(OpenMapping("Huge"), nullptr);
    }
    for (Handle bad : {Handle{nullptr}, InvalidHandle(), CreateMapping("Block", 1)}) {
        EXPECT_EQ(Wait(bad, 0), kWaitFailed);
        EXPECT_FALSE(SetEvent(bad) || ResetEvent(bad) || ReleaseMutex(bad));
        EXPECT_EQ(LastError(), uint32_t{EBADF});
    }
    EXPECT_FALSE(CloseHandle(nullptr) || CloseHandle(InvalidHandle()));
}

// Creation, removal and the directory's own coming and going race with one another.
TEST(NamedObject, OpensWhileOthersOpenCloseAndDie) {
    const auto churn = [](Line line) {
        line.Tell();
        for (int i = 0; i < 200; ++i) {
            Handle event = CreateNamedEvent("E");
            if (!SetEvent(event) || !CloseHandle(event)) return 1;
        }
        return 0;
    };
    Child children[] = {Child(churn), Child(churn), Child(churn)};
    for (int i = 0; i < 20; ++i)
        Child(kHoldBlock).Kill();
    for (Child &child : children)
        EXPECT_EQ(child.Join(), 0);
    EXPECT_EQ(OpenMapping("Block"), nullptr);
}

TEST(Event, ReleasesOneOfManyWaitersForEachSet) {
    auto &count = *static_cast<std::atomic<int> *>(mmap(nullptr, sizeof(std::atomic<int>),
                                                        PROT_READ | PROT_WRITE,
                                                        MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const auto consume = [&](Line line) {
        Handle ping = CreateNamedEvent("Ping");
        Handle pong = CreateNamedEvent("Pong");
        for (line.Tell(); Wait(ping, kWaitForever) == kWaitSignalled; SetEvent(pong))
            ++count;
        return 1;
    };
    const Child children[] = {Child(consume), Child(consume), Child(consume)};
    for (const Child &child : children)
        child.AwaitAsleep();
    Handle ping = CreateNamedEvent("Ping");
    Handle pong = CreateNamedEvent("Pong");
    for (int sets = 1; sets <= 1000; ++sets) {
        SetEvent(ping);
        ASSERT_EQ(Wait(pong, 60000), kWaitSignalled);
        ASSERT_EQ(count.load(), sets);
    }
    EXPECT_TRUE(SetEvent(pong) && SetEvent(pong));
    EXPECT_EQ(Wait(CreateNamedEvent("Pong"), 0), kWaitSignalled);
    EXPECT_EQ(Wait(pong, 0), kWaitTimeout) << "two sets before a wait are one signal";
    EXPECT_EQ(LastError(), uint32_t{ETIMEDOUT});
    EXPECT_TRUE(SetEvent(pong) && ResetEvent(pong));
    EXPECT_EQ(Wait(pong, 1), kWaitTimeout);
}

constexpr auto kOwn = [](Line line) {
    const bool isOwned = Wait(CreateNamedMutex("M"), 0) == kWaitSignalled;
    return isOwned && line.Tell() && line.Await() ? 0 : 1;
};

// One good try shows the wait's own error, the others the load of the machine.
TEST(Wait, TimesOutWithinAMillisecond) {
    Child owner(kOwn);
    for (Handle handle : {CreateNamedEvent("E"), CreateNamedMutex("M"), Handle{nullptr}}) {
        int64_t least = PerformanceFrequency();
        for (int i = 0; i < 400 && least * 1000 >= 6 * PerformanceFrequency(); ++i) {
            const int64_t start = PerformanceCounter();
            EXPECT_EQ(handle == nullptr ? (Sleep(5), kWaitTimeout) : Wait(handle, 5), kWaitTimeout);
            least = std::min(least, PerformanceCounter() - start);
        }
        EXPECT_GE(least * 1000, 5 * PerformanceFrequency());
        EXPECT_LT(least * 1000, 6 * PerformanceFrequency());
    }
}

TEST(Mutex, BelongsToAThreadThatMayTakeItAgainAndIsAbandonedWithIt) {
    // A forked process does not take the mutexes of its parent's thread for its own.
    Handle before = CreateNamedMutex("Before");
    EXPECT_EQ(Wait(before, 0), kWaitSignalled);
    EXPECT_TRUE(ReleaseMutex(before) && CloseHandle(before));
    Child owner(kOwn);
    Handle mutex = CreateNamedMutex("M");
    Handle same = CreateNamedMutex("M");
    EXPECT_EQ(Wait(mutex, 0), kWaitTimeout);
    owner.Kill();
    EXPECT_EQ(Wait(mutex, 60000), kWaitAbandoned) << "by a process";
    EXPECT_EQ(Wait(same, 1), kWaitSignalled);
    for (int depth = 2; depth > 0; --depth) {
        std::thread([&] {
            EXPECT_EQ(Wait(same, 0), kWaitTimeout);
            EXPECT_FALSE(ReleaseMutex(mutex));
            EXPECT_EQ(LastError(), uint32_t{EPERM});
        }).join();
        EXPECT_TRUE(ReleaseMutex(same)) << "taken by one handle, given back by the other";
    }
    EXPECT_FALSE(ReleaseMutex(same));
    std::thread(Wait, same, 0).join();
    EXPECT_EQ(Wait(mutex, 0), kWaitAbandoned) << "by a thread";
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(Wait(mutex, 1), kWaitSignalled) << "abandoned once";
}

TEST(Mutex, ClosingTheLastHandleReleasesOwnAndKeepsAnothersOwnership) {
    Child other([](Line line) {
        Handle mutex = CreateNamedMutex("M");
        line.Tell();
        for (const uint32_t outcome : {kWaitSignalled, kWaitTimeout, kWaitAbandoned}) {
            if (!line.Await() || Wait(mutex, 0) != outcome) return 1;
            ReleaseMutex(mutex);
            line.Tell();
        }
        return 0;
    });
    const auto letOtherTry = [&] { return other.line.Tell() && other.line.Await(); };
    Handle mutex = CreateNamedMutex("M");
    EXPECT_EQ(Wait(mutex, 0) + Wait(mutex, 0), kWaitSignalled);
    CloseHandle(mutex);
    EXPECT_TRUE(letOtherTry());
    std::thread([&] {
        mutex = CreateNamedMutex("M");
        EXPECT_EQ(Wait(mutex, 0), kWaitSignalled);
        std::thread(CloseHandle, mutex).join();
        EXPECT_TRUE(letOtherTry());
        mutex = CreateNamedMutex("M");
        EXPECT_TRUE(ReleaseMutex(mutex)) << "still the owner by a new handle";
        EXPECT_EQ(Wait(mutex, 0), kWaitSignalled);
        std::thread(CloseHandle, mutex).join();
    }).join();
    other.line.Tell();
    EXPECT_EQ(other.Join(), 0);
}

// ---- Other processes of the user write what they like ----

// All that other processes can reach of an object.
std::span<uint32_t> SharedWords(Handle handle) {
    const Segment &memory = ObjectOf(handle)->memory;
    auto *first = static_cast<uint32_t *>(memory.Data());
    return {first, reinterpret_cast<uint32_t *>(memory.End())};
}

// Locks that the kernel would mark as abandoned if this thread ended now; -1 when that cannot be
// told.
int ListedLocks() {
    robust_list_head *head = nullptr;
    size_t bytes = 0;
    if (syscall(SYS_get_robust_list, 0, &head, &bytes) != 0) return -1;
    int count = 0;
    for (const robust_list *link = head->list.next; link != &head->list && count < 100; ++count)
        link = link->next;
    return head->list_op_pending == nullptr ? count : -1;
}

// Addresses are among the values: of a variable that must not change, so that memory which is
// taken for links leads there.
TEST(Mutex, AnyValueInItsMemoryCostsItsServiceOnly) {
    uint32_t victim[64] = {};
    const auto address = reinterpret_cast<std::uintptr_t>(&victim[32]);
    const auto id = static_cast<uint32_t>(gettid());
    Handle mutex = CreateNamedMutex("M");
    for (const uint32_t value :
         {0U, 1U, id, id | FUTEX_WAITERS, uint32_t{FUTEX_OWNER_DIED}, FUTEX_OWNER_DIED | id, ~0U,
          static_cast<uint32_t>(address), static_cast<uint32_t>(address >> 32)}) {
        ASSERT_EQ(Wait(mutex, 0), kWaitSignalled) << value;
        EXPECT_EQ(ListedLocks(), 2);
        std::ranges::fill(SharedWords(mutex), value);
        std::thread([&] { EXPECT_EQ(Wait(mutex, 2), kWaitTimeout) << value; }).join();
        EXPECT_TRUE(ReleaseMutex(mutex)) << value;
        EXPECT_EQ(ListedLocks(), 0);
        std::ranges::fill(SharedWords(mutex), value);
        const uint32_t outcome = Wait(mutex, 2);
        EXPECT_EQ(ReleaseMutex(mutex), outcome != kWaitTimeout) << value;
        std::ranges::fill(SharedWords(mutex), 0);
    }
    EXPECT_TRUE(std::ranges::all_of(victim, [](uint32_t word) { return word == 0; }));
}

TEST(Wait, EndsInTimeWhileAnotherProcessWritesAllTheWhile) {
    const Child writer([](Line line) {
        const auto event = SharedWords(CreateNamedEvent("E"));
        const auto mutex = SharedWords(CreateNamedMutex("M"));
        line.Tell();
        for (uint32_t value = 1;; value = value * 1664525 + 1013904223) {
            std::atomic_ref(event.front()).store(value >> 30);
            std::atomic_ref(mutex.end()[-2]).store(value % 8 == 0 ? value >> 3 : 0);
        }
        return 0;
    });
    Handle event = CreateNamedEvent("E");
    Handle mutex = CreateNamedMutex("M");
    const auto use = [=] {
        for (uint32_t i = 0; i < 300; ++i) {
            Wait(event, i % 3);
            const bool isOwned = Wait(mutex, i % 3) != kWaitTimeout;
            EXPECT_EQ(ReleaseMutex(mutex), isOwned);
        }
        EXPECT_EQ(ListedLocks(), 0);
    };
    std::thread other(use);
    use();
    other.join();
}

TEST(NamedObject, ItsMemoryStaysWhenItsFileIsCutShort) {
    Child holder(kHoldBlock);
    Child late([](Line line) {
        if (!line.Tell() || !line.Await()) return 1;
        return CreateNamedMutex("M") == nullptr && LastError() == EINVAL ? 0 : 1;
    });
    size_t size = 0;
    auto *bytes = static_cast<char *>(MapView(OpenMapping("Block"), &size));
    Handle mutex = CreateNamedMutex("M");
    Handle event = CreateNamedEvent("E");
    for (Handle handle : {OpenMapping("Block"), mutex, event})
        ASSERT_EQ(ftruncate(ObjectOf(handle)->file.Get(), 0), 0);
    EXPECT_EQ(bytes[10770], 7);
    EXPECT_EQ(Wait(mutex, 0), kWaitSignalled);
    EXPECT_TRUE(ReleaseMutex(mutex) && SetEvent(event));
    EXPECT_EQ(Wait(event, 0), kWaitSignalled);
    late.line.Tell();
    EXPECT_EQ(late.Join(), 0) << "a file that describes no object is refused";
}

TEST(Bounded, KeepsWithinTheDestinationAndClearsItOnFailure) {
    char text[] = "abcdefgh|";
    EXPECT_EQ(CopyBounded(text, 4, text + 4, 4), 0) << "neighbours do not overlap";
    EXPECT_EQ(FillBounded(text, 8, 'z', 2), 0);
    EXPECT_STREQ(text, "zzghefgh|");
    EXPECT_NE(CopyBounded(text, 8, text + 3, 4), 0);
    EXPECT_EQ(std::string(text, 9), std::string(8, '\0') + '|');
    text[1] = 'x';
    EXPECT_NE(CopyBounded(text, 8, "123456789", 9), 0);
    EXPECT_EQ(text[1], '\0');
    EXPECT_NE(FillBounded(text, 8, 'y', 9), 0);
    EXPECT_EQ(text[8], '|');
}

}  // namespace
}  // namespace aiplc::platform
