// SPDX-License-Identifier: BSD-2-Clause
//
// A platform whose every answer, and whatever the other side of the shared block does meanwhile,
// comes from the fuzzer's input. Handles are heap objects, so that AddressSanitizer sees one that
// is lost, closed twice or used after its end.

#ifndef AIPLC_FUZZ_HOSTILE_PLATFORM_H
#define AIPLC_FUZZ_HOSTILE_PLATFORM_H

#include <fuzzer/FuzzedDataProvider.h>

namespace aiplc::fuzz {

// From here to the end of the scope the platform answers from data; it starts with no handles.
class HostilePlatform {
  public:
    explicit HostilePlatform(FuzzedDataProvider &data);
    ~HostilePlatform();
    HostilePlatform(const HostilePlatform &) = delete;
    HostilePlatform &operator=(const HostilePlatform &) = delete;

    // How often the calling side owns the mutex.
    static int MutexDepth();
};

}  // namespace aiplc::fuzz

#endif
