// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_FUZZ_HOSTILE_PLATFORM_H
#define AIPLC_FUZZ_HOSTILE_PLATFORM_H

#include <fuzzer/FuzzedDataProvider.h>

#include "tests/support/fake_platform.h"

namespace aiplc::fuzz {

// A platform whose every answer, and whatever the other side of the shared block does meanwhile,
// comes from the fuzzer's input. In the end all handles must have been given back, and the mutex.
class HostilePlatform : public platform::FakePlatform {
  public:
    explicit HostilePlatform(FuzzedDataProvider &data);
    ~HostilePlatform() override;
    HostilePlatform(const HostilePlatform &) = delete;
    HostilePlatform &operator=(const HostilePlatform &) = delete;
    int64_t Answer(std::string_view call, std::string_view about, int64_t usual) override;

  private:
    bool Fails();
    void Meddle();

    FuzzedDataProvider &m_data;
    int64_t m_clock = 0;
};

}  // namespace aiplc::fuzz

#endif
