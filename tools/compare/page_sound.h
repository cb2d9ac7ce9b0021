// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_PAGE_SOUND_H
#define AIPLC_TOOLS_PAGE_SOUND_H

#include <cstdint>
#include <vector>

#include "tools/compare/call_sound.h"

namespace aiplc::tools {

// Shares the room for sound in the page between the calls: all of them whole where they fit in.
// Otherwise calls up to an equal share stay whole, longer ones are cut to excerpts, and the room
// that is left makes as many of these whole as it can, the cheapest ones first.
class PageSound {
  public:
    enum class Kept { whole, excerpts, none };

    // limit: bytes, 0 or more.
    explicit PageSound(int64_t limit) : m_limit(limit) {}

    // Holds the texts that may yet be chosen: never more than the limit in whole calls.
    void Add(CallSound sound);

    // Once all calls are added: the verdict on each of them, in their order.
    [[nodiscard]] std::vector<Kept> Choose() const;
    [[nodiscard]] const CallSound &Sound(size_t call) const { return m_calls[call]; }
    // Bytes that all calls would take as a whole.
    [[nodiscard]] int64_t Needed() const;

  private:
    // Calls that may be whole: those without excerpts, then those that cost least to make whole.
    [[nodiscard]] std::vector<size_t> ByCost() const;

    int64_t m_limit;
    std::vector<CallSound> m_calls;
};

}  // namespace aiplc::tools

#endif
