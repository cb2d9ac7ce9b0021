// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <thread>

#include "child_process.h"
#include "platform/platform.h"

namespace aiplc::platform {
namespace {

template <typename Body>
void OnThread(Body body) {
    std::thread(body).join();
}

TEST(Event, StaysSetUntilOneWaitOrAReset) {
    const Handle first = CreateNamedEvent("E");
    const Handle second = CreateNamedEvent("E");
    EXPECT_EQ(Wait(first, 0), kWaitTimeout);
    EXPECT_EQ(LastError(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_TRUE(SetEvent(first) && SetEvent(first));
    EXPECT_EQ(Wait(second, 0), kWaitSignalled);
    EXPECT_EQ(Wait(first, 0), kWaitTimeout) << "two sets before a wait are one signal";
    EXPECT_TRUE(SetEvent(second) && ResetEvent(first));
    EXPECT_EQ(Wait(second, 1), kWaitTimeout);
    EXPECT_TRUE(CloseHandle(first) && CloseHandle(second));
}

TEST(Event, ReleasesOneOfManyWaitersForEachSet) {
    struct Objects {
        Handle event = CreateNamedEvent("E");
        Handle done = CreateNamedEvent("Done");
        Handle mapping = CreateMapping("Count", 1);
        size_t size = 0;
        void *view = MapView(mapping, &size);
        std::atomic<uint32_t> &count = *static_cast<std::atomic<uint32_t> *>(view);
    };
    const auto consume = [](Line line) {
        const Objects own;
        line.Tell();
        while (Wait(own.event, kWaitForever) == kWaitSignalled) {
            ++own.count;
            SetEvent(own.done);
        }
        return 1;
    };
    Child children[] = {Child(consume), Child(consume), Child(consume)};
    for (const Child &child : children)
        child.AwaitAsleep();
    const Objects own;
    for (uint32_t sets = 1; sets <= 1000; ++sets) {
        SetEvent(own.event);
        ASSERT_EQ(Wait(own.done, 60000), kWaitSignalled);
        ASSERT_EQ(own.count.load(), sets);
    }
    UnmapView(own.view);
    for (const Handle handle : {own.event, own.done, own.mapping})
        CloseHandle(handle);
}

constexpr auto kOwnTwice = [](Line line) {
    const Handle mutex = CreateNamedMutex("M");
    const uint32_t outcome = Wait(mutex, 0) + Wait(mutex, 1);
    return line.Tell() && line.Await() ? 0 : static_cast<int>(outcome);
};

// The best of many tries shows the wait's own error, the others the load of the machine.
TEST(Wait, TimesOutWithinAMillisecond) {
    Child owner(kOwnTwice);
    owner.line.Await();
    const Handle event = CreateNamedEvent("E");
    const Handle mutex = CreateNamedMutex("M");
    const auto expectFive = [](auto wait) {
        int64_t least = INT64_MAX;
        for (int i = 0; i < 50; ++i) {
            const int64_t start = PerformanceCounter();
            wait();
            least = std::min(least, PerformanceCounter() - start);
        }
        EXPECT_GE(least * 1000, 5 * PerformanceFrequency());
        EXPECT_LT(least * 1000, 6 * PerformanceFrequency());
    };
    expectFive([&] { EXPECT_EQ(Wait(event, 5), kWaitTimeout); });
    expectFive([&] { EXPECT_EQ(Wait(mutex, 5), kWaitTimeout); });
    expectFive([] { Sleep(5); });
    EXPECT_TRUE(CloseHandle(mutex) && CloseHandle(event));
}

TEST(Mutex, BelongsToAThreadThatMayTakeItAgain) {
    const Handle mutex = CreateNamedMutex("M");
    const Handle same = CreateNamedMutex("M");
    EXPECT_EQ(Wait(mutex, 0), kWaitSignalled);
    EXPECT_EQ(Wait(same, 1), kWaitSignalled);
    for (int depth = 2; depth > 0; --depth) {
        OnThread([&] {
            EXPECT_EQ(Wait(same, 0), kWaitTimeout);
            EXPECT_EQ(Wait(same, 1), kWaitTimeout);
            EXPECT_FALSE(ReleaseMutex(mutex));
            EXPECT_EQ(LastError(), static_cast<uint32_t>(EPERM));
        });
        EXPECT_TRUE(ReleaseMutex(same)) << "taken by one handle, given back by the other";
    }
    EXPECT_FALSE(ReleaseMutex(same));
    OnThread([&] { EXPECT_TRUE(Wait(same, 0) == kWaitSignalled && ReleaseMutex(same)); });
    EXPECT_TRUE(CloseHandle(mutex) && CloseHandle(same));
}

TEST(Mutex, TurnsUpAbandonedOnceWithOwnership) {
    Child owner(kOwnTwice);
    owner.line.Await();
    Child waiter([](Line line) {
        const Handle mutex = CreateNamedMutex("M");
        if (!line.Tell() || Wait(mutex, 60000) != kWaitAbandoned) return 1;
        return line.Tell() && line.Await() && ReleaseMutex(mutex) ? 0 : 2;
    });
    waiter.AwaitAsleep();
    const Handle mutex = CreateNamedMutex("M");
    owner.Kill();
    EXPECT_TRUE(waiter.line.Await());
    EXPECT_EQ(Wait(mutex, 0), kWaitTimeout) << "the one told owns it";
    waiter.line.Tell();
    EXPECT_EQ(waiter.Join(), 0);
    OnThread([&] { EXPECT_EQ(Wait(mutex, 0), kWaitSignalled); });
    EXPECT_EQ(Wait(mutex, 0), kWaitAbandoned) << "by a thread that ended";
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(Wait(mutex, 1), kWaitSignalled);
    EXPECT_TRUE(CloseHandle(mutex));
}

TEST(Mutex, ClosingTheLastHandleReleasesOwnAndKeepsAnothersOwnership) {
    Child other([](Line line) {
        const Handle mutex = CreateNamedMutex("M");
        for (const uint32_t outcome : {kWaitSignalled, kWaitTimeout, kWaitAbandoned}) {
            if (!line.Tell() || !line.Await() || Wait(mutex, 0) != outcome) return 1;
            ReleaseMutex(mutex);
        }
        return 0;
    });
    const auto letOtherTry = [&] { return other.line.Tell() && other.line.Await(); };
    other.line.Await();
    Handle mutex = CreateNamedMutex("M");
    EXPECT_EQ(Wait(mutex, 0) + Wait(mutex, 0), 2 * kWaitSignalled);
    CloseHandle(mutex);
    EXPECT_TRUE(letOtherTry());
    mutex = CreateNamedMutex("M");
    OnThread([&] {
        EXPECT_EQ(Wait(mutex, 0), kWaitSignalled);
        OnThread([&] { CloseHandle(mutex); });
        EXPECT_TRUE(letOtherTry());
        mutex = CreateNamedMutex("M");
        EXPECT_TRUE(ReleaseMutex(mutex)) << "still the owner by a new handle";
        EXPECT_EQ(Wait(mutex, 0), kWaitSignalled);
        OnThread([&] { CloseHandle(mutex); });
    });
    other.line.Tell();
    EXPECT_EQ(other.Join(), 0);
}

}  // namespace
}  // namespace aiplc::platform
