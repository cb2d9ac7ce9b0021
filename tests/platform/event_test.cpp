// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>

#include "child_process.h"
#include "platform/platform.h"

namespace aiplc::platform {
namespace {

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
        child.line.Await();
    const Objects own;
    for (uint32_t sets = 1; sets <= 1000; ++sets) {
        SetEvent(own.event);
        ASSERT_EQ(Wait(own.done, 60000), kWaitSignalled);
        ASSERT_EQ(own.count.load(), sets);
    }
    for (const Child &child : children)
        child.AwaitAsleep();
    EXPECT_EQ(own.count.load(), 1000U);
    UnmapView(own.view);
    for (const Handle handle : {own.event, own.done, own.mapping})
        CloseHandle(handle);
}

TEST(Event, AWaiterThatDiesInItsWaitTakesNoSignalAway) {
    const auto wait = [](Line line) {
        const Handle event = CreateNamedEvent("E");
        line.Tell();
        return Wait(event, kWaitForever) == kWaitSignalled ? 0 : 1;
    };
    Child doomed(wait);  // the first in the queue
    doomed.line.Await();
    doomed.AwaitAsleep();
    Child survivor(wait);
    survivor.line.Await();
    survivor.AwaitAsleep();
    doomed.Stop();
    const Handle event = CreateNamedEvent("E");
    SetEvent(event);
    EXPECT_EQ(survivor.Join(), 0);
    CloseHandle(event);
}

// The best of many tries shows the wait's own error, the others the load of the machine.
TEST(Event, TimesOutWithinAMillisecond) {
    Child owner([](Line line) {
        Wait(CreateNamedMutex("M"), 0);
        line.Tell();
        return line.Await() ? 0 : 1;
    });
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
    CloseHandle(mutex);
    CloseHandle(event);
}

}  // namespace
}  // namespace aiplc::platform
