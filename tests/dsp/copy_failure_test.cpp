// SPDX-License-Identifier: BSD-2-Clause
//
// A bounded copy that refuses its sizes: each caller says so and leaves alone what comes after it.

#include <algorithm>

#include "tests/support/scripted_platform.h"

namespace {

constexpr char kLine[] = "aiplc_process: memcpy_s opus plc predict failed: 34\n";

struct CopyFailure : ScriptedTest {
    CopyFailure() { EXPECT_EQ(AiPlcInitRingLists(&channel), 0); }
    ~CopyFailure() override { AiPlcAsyncDestroy(&channel); }
    // The next copy of so many bytes fails.
    static void Fail(const char *copy) {
        scripted.calls.clear();
        scripted.answers = {{{copy, 1}, 34}};
    }
    StAiPlcChannel channel{};
};

}  // namespace

TEST_F(CopyFailure, EndsWhatNeedsTheCopy) {
    AiPlcPkt &node = *channel.historyRing->head, &output = *channel.outputRing->head;
    node.pktType = OPUSPLC_PREDICT;
    Fail("CopyBounded 640");  // of a band
    EXPECT_EQ(AiPlcCopyPkt(&output, &node), -6);
    EXPECT_EQ(output.pktType, PKT_MUTE);

    channel.postLowPassMem16K[0] = 7;
    Fail("CopyBounded 640");
    AiPlcPostProc16K(&channel, &node);
    EXPECT_EQ(TakeLog(), kLine);
    EXPECT_EQ(channel.postLowPassMem16K[0], 7);

    std::fill_n(output.samples, 960, int16_t{5});
    std::fill_n(channel.opusRing->head->prev->prev->prev->samples, 960, int16_t{9});
    Fail("CopyBounded 1920");  // of the codec's frame
    AiPlcOpusFallBack(&channel, &node, &output);
    EXPECT_EQ(TakeLog(), kLine);
    EXPECT_EQ(output.samples[959] + node.opusPlcApplied, 5);
    Fail("CopyBounded 640");
    AiPlcOpusFallBack(&channel, &node, &output);
    EXPECT_EQ(output.samples[959], 0) << "no frame is heard as silence";

    float frame[30] = {}, state[48] = {};
    for (const auto wrapper : {AiPlcThreeBandAnalysis, AiPlcThreeBandSynthesis}) {
        Fail("CopyBounded 120");
        EXPECT_EQ(wrapper(frame, frame, state, 30), -1);
        EXPECT_EQ(TakeLog(), "");
    }
}
