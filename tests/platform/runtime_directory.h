// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TEST_RUNTIME_DIRECTORY_H
#define AIPLC_TEST_RUNTIME_DIRECTORY_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace aiplc::platform {

// Tests with a runtime directory of their own, and the environment as it was afterwards.
class RuntimeDirectory : public testing::Test {
  protected:
    RuntimeDirectory() { setenv("XDG_RUNTIME_DIR", m_runtime.c_str(), 1); }
    ~RuntimeDirectory() override {
        std::filesystem::remove_all(m_runtime);
        setenv("XDG_RUNTIME_DIR", m_before.c_str(), 1);
        setenv("AIPLC_NAMESPACE", m_space.c_str(), 1);
    }

    const std::string m_space = std::getenv("AIPLC_NAMESPACE");
    std::string m_runtime =
        mkdtemp((std::filesystem::temp_directory_path() / "aiplc-XXXXXX").string().data());

  private:
    const std::string m_before =
        std::getenv("XDG_RUNTIME_DIR") == nullptr ? "" : std::getenv("XDG_RUNTIME_DIR");
};

}  // namespace aiplc::platform

#endif
