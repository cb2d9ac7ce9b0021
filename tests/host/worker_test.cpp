// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tests/host/call.h"

namespace aiplc::host {
namespace {

const ReceiverOptions kWithWorker{.sampleRate = 16000};

TEST(Worker, FillsPairsOfLostFramesOrLeavesThemToTheCodec) {
    const auto packets = Encode({.sampleRate = 16000}, SpeechLike(16000, 8));
    std::vector<size_t> lost;
    for (size_t i = 20; i < 390; i += 10)
        lost.insert(lost.end(), {i, i + 1});
    const PlayedCall call = Play(packets, kWithWorker, Losing(lost));
    const Statistics &counted = call.statistics;
    // Each pair is one request; a busy machine may be late for some, not for all.
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP2_AHEAD2], lost.size() / 2);
    EXPECT_EQ(counted.Requests(), lost.size() / 2);
    EXPECT_LT(counted.requestsFailed, lost.size() / 2);
    EXPECT_GT(counted.RequestTimeMs(1), 0);
    EXPECT_GT(counted.initTimeMs, 0);
    for (size_t i = 0; i < lost.size(); i += 2) {
        const bool failed = call.frames[lost[i]].requestFailed;
        EXPECT_EQ(call.Sources().substr(lost[i] - 1, 4), failed ? "dccd" : "diid") << lost[i];
        EXPECT_EQ(call.frames[lost[i]].fusedIntoPredict, !failed);
    }
    EXPECT_EQ(counted.concealedSamples, lost.size() * 320);
}

// The sound is turned over at frame 21, so that the prediction made for frame 21 and the packet
// that comes late for it disagree by twice the amplitude.
TEST(Worker, APredictionThatIsBeingPlayedIsFadedIntoTheLatePacket) {
    constexpr size_t kBoundary = size_t{19} * 320;
    std::vector<int16_t> pcm(16000);
    const Sender sender({.sampleRate = 16000});
    const size_t turn = kBoundary - static_cast<size_t>(sender.LookAhead());
    for (size_t i = 0; i < pcm.size(); ++i) {
        const double phase = 0.1 * (static_cast<double>(i) - static_cast<double>(turn));
        pcm[i] = static_cast<int16_t>((i < turn ? 8000 : -8000) * std::cos(phase));
    }
    const auto packets = Encode({.sampleRate = 16000, .bitrate = 64000, .packetMs = 60}, pcm);
    const auto arrival = [](size_t index, int64_t due) {
        return std::optional(index == 6 ? due + 4 : due);
    };
    const PlayedCall inTime = Play(packets, {.sampleRate = 16000, .useWorker = false}, InTime());
    const auto step = [](const PlayedCall &call) {
        int largest = 0;
        for (size_t i = kBoundary - 4; i < kBoundary + 4; ++i)
            largest = std::max(largest, std::abs(call.pcm[i] - call.pcm[i - 1]));
        return largest;
    };
    PlayedCall call;
    for (int attempt = 0; attempt < 20; ++attempt) {
        call = Play(packets, kWithWorker, arrival);
        if (call.Sources().substr(17, 4) == "dell") break;
    }
    ASSERT_EQ(call.Sources().substr(17, 4), "dell");
    // The tone itself moves by 800 a sample at most.
    EXPECT_GT(step(inTime), 8000);
    EXPECT_LT(step(call), 1600);
}

}  // namespace
}  // namespace aiplc::host
