// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/page_sound.h"

#include <gmock/gmock.h>

#include "tools/compare/call_excerpts.h"

namespace aiplc::tools {
namespace {

using testing::ElementsAre;

// Gaps of 10 frames at 1000, 2000, ... 9000 with distances of 1 to 9 dB.
TEST(CallExcerptsTest, WorstAndTypicalGapsComeFirstWithinTheBudget) {
    CallScores scores;
    for (int i = 1; i < 10; ++i) {
        GapScores gap{int64_t{1000} * i, 10, std::vector<GapTerms>(1)};
        gap.methods[0].inside[0] = {10.0 * i, 10.0};
        scores.gaps.push_back(gap);
    }
    const auto choose = [&](int64_t budget) { return ChooseExcerpts(scores, 0, 10000, budget); };
    // A gap takes 110 frames with a second on either side.
    EXPECT_THAT(choose(330),
                ElementsAre(Excerpt{4950, 110}, Excerpt{7950, 110}, Excerpt{8950, 110}));
    EXPECT_THAT(choose(329), ElementsAre(Excerpt{4950, 110}, Excerpt{8950, 110}));
    EXPECT_THAT(choose(78), ElementsAre(Excerpt{4987, 36}, Excerpt{8987, 36}));
    EXPECT_THAT(choose(74), ElementsAre());
    scores.gaps.clear();
    EXPECT_THAT(choose(300), ElementsAre(Excerpt{0, 300}));
}

TEST(PageSoundTest, ShortCallsStayWholeAndTheRestOfTheRoomMakesLongOnesWhole) {
    using Kept = PageSound::Kept;
    // Sizes as a share of 10 bytes cuts them: up to 10 whole, longer ones to excerpts of 10.
    const auto choose = [](const std::vector<size_t> &sizes) {
        PageSound sound(10 * static_cast<int64_t>(sizes.size()));
        int64_t held = 0;
        for (const size_t size : sizes)
            sound.Add({std::string(size, 'w'), std::string(size > 10 ? 10U : 0U, 'e'),
                       static_cast<int64_t>(size)});
        for (size_t i = 0; i < sizes.size(); ++i)
            held += static_cast<int64_t>(sound.Sound(i).whole.size());
        EXPECT_LE(held, 10 * static_cast<int64_t>(sizes.size()));
        return sound.Choose();
    };
    EXPECT_THAT(choose({28, 1, 1}), ElementsAre(Kept::whole, Kept::whole, Kept::whole));
    EXPECT_THAT(choose({29, 1, 1}), ElementsAre(Kept::excerpts, Kept::whole, Kept::whole));
    EXPECT_THAT(choose({40, 14, 4, 11}),
                ElementsAre(Kept::excerpts, Kept::whole, Kept::whole, Kept::whole));
    EXPECT_THAT(choose({12, 11, 10}), ElementsAre(Kept::excerpts, Kept::excerpts, Kept::whole));
}

}  // namespace
}  // namespace aiplc::tools
