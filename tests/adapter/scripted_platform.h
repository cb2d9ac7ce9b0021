// SPDX-License-Identifier: BSD-2-Clause
//
// A platform without an operating system: it records the calls and answers as scripted.

#ifndef AIPLC_SCRIPTED_PLATFORM_H
#define AIPLC_SCRIPTED_PLATFORM_H

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "adapter/protocol.h"

struct ScriptedPlatform {
    static constexpr uint32_t kOutOfMemory = 0xBAD;  // as an answer: throws std::bad_alloc

    // Oldest first, as "SetEvent NAME" or "Wait NAME MILLISECONDS"; copies and text are not listed.
    std::vector<std::string> calls;
    // Answers to coming calls by that text, or "CopyBounded BYTES": a wait's outcome, else whether
    // the call succeeds (a copy: its error code). Calls without an answer left succeed.
    std::map<std::string, std::deque<uint32_t>> answers;
    std::deque<uint32_t> processIds;  // found by name, one a call; 0 = absent, none left = failed
    std::deque<int64_t> counter;      // clock readings; the last one stays
    int64_t frequency = 1'000'000;
    size_t viewBytes = sizeof(aiplc::protocol::SharedBlock);
    aiplc::protocol::SharedBlock block{};
    int mutexDepth = 0;  // how often this thread owns the mutex
};

extern ScriptedPlatform scripted;

#endif
