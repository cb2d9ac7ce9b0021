// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_FAKE_PLATFORM_H
#define AIPLC_TESTS_FAKE_PLATFORM_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "src/adapter/protocol.h"
#include "src/platform/platform.h"

namespace aiplc::platform {

// Takes the place of the operating system where aiplc_fake_platform is linked instead of the real
// platform. Whether a call succeeds is up to the derived class. A handle or view that is used after
// its end, or a mutex that is given back without being owned, ends the program.
class FakePlatform {
  public:
    // As the answer to FindProcess: the processes cannot be listed.
    static constexpr int64_t kNoProcessList = -1;

    FakePlatform() = default;
    FakePlatform(FakePlatform &&) = default;
    FakePlatform &operator=(FakePlatform &&) = default;
    virtual ~FakePlatform() = default;

    // The outcome of a call of the platform. about is the object's name, a path, the bytes of a
    // copy or empty. The answer is 1 for success and 0 for failure; of MapView it is the bytes of
    // the view (0: failure), of Wait the outcome, of FindProcess the process id (0: there is none),
    // of ExecutablePath the length, of a clock its reading, of a copy its error (0: success).
    virtual int64_t Answer(std::string_view call, std::string_view about, int64_t usual) = 0;

    // Handles and views that have not been given back.
    int Held() const { return static_cast<int>(objects.size()) + (view == nullptr ? 0 : 1); }
    // The shared block, or null where none is mapped or the view is too small for it.
    protocol::SharedBlock *Block() const {
        const bool isThere = view != nullptr && viewBytes >= sizeof(protocol::SharedBlock);
        return isThere ? reinterpret_cast<protocol::SharedBlock *>(view.get()) : nullptr;
    }

    std::map<Handle, std::string> objects;  // names of the open handles
    std::unique_ptr<uint8_t[]> view;        // of exactly viewBytes
    size_t viewBytes = 0;
    int mutexDepth = 0;   // how often the caller owns the mutex
    uint32_t waitMs = 0;  // of the last Wait
};

// Answers all calls, must be set before the first one.
inline FakePlatform *fake = nullptr;

}  // namespace aiplc::platform

#endif
