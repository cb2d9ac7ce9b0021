// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "child_process.h"
#include "platform/platform.h"

namespace aiplc::platform {
namespace {

template <typename Body>
void OnThread(Body body) {
    std::thread(body).join();
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
    Child owner([](Line line) {
        const Handle mutex = CreateNamedMutex("M");
        for (int depth = 0; depth < 2; ++depth)
            Wait(mutex, 0);
        line.Tell();
        return line.Await() ? 0 : 1;
    });
    owner.line.Await();
    Child waiter([](Line line) {
        const Handle mutex = CreateNamedMutex("M");
        line.Tell();
        if (Wait(mutex, 60000) != kWaitAbandoned) return 1;
        line.Tell();
        line.Await();
        return ReleaseMutex(mutex) ? 0 : 2;
    });
    waiter.line.Await();
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
            line.Tell();
            line.Await();
            if (Wait(mutex, 0) != outcome) return 1;
            if (outcome != kWaitTimeout) ReleaseMutex(mutex);
        }
        return 0;
    });
    other.line.Await();
    Handle mutex = CreateNamedMutex("M");
    for (int depth = 0; depth < 2; ++depth)
        Wait(mutex, 0);
    CloseHandle(mutex);
    other.line.Tell();
    other.line.Await();
    mutex = CreateNamedMutex("M");
    OnThread([&] {
        EXPECT_EQ(Wait(mutex, 0), kWaitSignalled);
        OnThread([&] { CloseHandle(mutex); });
        other.line.Tell();
        other.line.Await();
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
