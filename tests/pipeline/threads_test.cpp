// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/losing_call.h"

// Channels have nothing in common but the log, the node counter and the tables; one of them has the
// process's worker. For ThreadSanitizer.
TEST(Threads, ChannelsPlayAtOnce) {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 6; ++i) {
        threads.emplace_back([i] {
            for (unsigned round = 0; round < 3; ++round) {
                LosingCall call(i % 2 == 1, i == 0, i + 4);
                EXPECT_NO_THROW(call.Play(600));
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}
