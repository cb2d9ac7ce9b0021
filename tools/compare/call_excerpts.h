// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CALL_EXCERPTS_H
#define AIPLC_TOOLS_CALL_EXCERPTS_H

#include <cstdint>
#include <vector>

#include "tools/compare/call_scores.h"

namespace aiplc::tools {

// A part of a call, in frames.
struct Excerpt {
    int64_t first = 0;
    int64_t frames = 0;
    bool operator==(const Excerpt &) const = default;
};

// Chooses the parts of a call that tell most about a method, in the order of the call and without
// overlap, together at most `budget` frames long: in turn around the gap with the method's greatest
// log-spectral distance and around the one nearest to its median, each with up to a second on
// either side. Gaps without a score are passed over; a call without scores is cut to its beginning.
// Nothing where the budget is below one and a half seconds, so that a quarter of a second remains
// on either side.
std::vector<Excerpt> ChooseExcerpts(const CallScores &scores, size_t method, int64_t callFrames,
                                    int64_t budget);

}  // namespace aiplc::tools

#endif
