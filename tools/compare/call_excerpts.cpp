// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/call_excerpts.h"

#include <algorithm>
#include <cmath>

namespace aiplc::tools {
namespace {

constexpr int64_t kLeastBudget = 75;  // frames of 20 ms
constexpr int64_t kContext = 50;      // frames on either side of a gap, at most

struct ScoredGap {
    int64_t first = 0;
    int64_t frames = 0;
    double distance = 0.0;  // dB
};

std::vector<ScoredGap> ScoredGaps(const CallScores &scores, size_t method) {
    static_assert(kGapMeasures[0] == CompareMeasure::lsd);
    std::vector<ScoredGap> gaps;
    for (const GapScores &gap : scores.gaps) {
        const measure::Term &term = gap.methods[method].inside[0];
        if (term.count > 0.0) gaps.push_back({gap.first, gap.frames, term.sum / term.count});
    }
    return gaps;
}

// The worst gap, the most typical one, the second worst, and so on; every gap comes twice.
std::vector<ScoredGap> ByInterest(std::vector<ScoredGap> gaps) {
    std::ranges::stable_sort(gaps, std::ranges::greater{}, &ScoredGap::distance);
    const double median = gaps[gaps.size() / 2].distance;
    std::vector<ScoredGap> typical = gaps;
    std::ranges::stable_sort(
        typical, {}, [median](const ScoredGap &gap) { return std::abs(gap.distance - median); });
    std::vector<ScoredGap> order;
    for (size_t i = 0; i < gaps.size(); ++i) {
        order.push_back(gaps[i]);
        order.push_back(typical[i]);
    }
    return order;
}

std::vector<Excerpt> Runs(const std::vector<bool> &kept) {
    std::vector<Excerpt> runs;
    for (size_t frame = 0; frame < kept.size(); ++frame) {
        if (!kept[frame]) continue;
        if (frame == 0 || !kept[frame - 1]) runs.push_back({static_cast<int64_t>(frame), 0});
        ++runs.back().frames;
    }
    return runs;
}

}  // namespace

std::vector<Excerpt> ChooseExcerpts(const CallScores &scores, size_t method, int64_t callFrames,
                                    int64_t budget) {
    if (budget < kLeastBudget || callFrames <= 0) return {};
    const std::vector<ScoredGap> gaps = ScoredGaps(scores, method);
    if (gaps.empty()) return {{0, std::min(budget, callFrames)}};
    // Short excerpts leave room for more than one.
    const int64_t context = std::min(kContext, budget / 6);
    std::vector<bool> kept(static_cast<size_t>(callFrames), false);
    for (const ScoredGap &gap : ByInterest(gaps)) {
        const int64_t first = std::max<int64_t>(gap.first - context, 0);
        const int64_t end = std::min(gap.first + gap.frames + context, callFrames);
        const auto begin = kept.begin() + first;
        const int64_t added = std::count(begin, kept.begin() + end, false);
        if (added > budget) continue;
        std::fill(begin, kept.begin() + end, true);
        budget -= added;
    }
    return Runs(kept);
}

}  // namespace aiplc::tools
