// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

// Every test process has a namespace of its own, so that tests run in parallel and never meet.
int main(int argc, char **argv) {
    const std::string space = "test-" + std::to_string(getpid());
    setenv("AIPLC_NAMESPACE", space.c_str(), 0);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
