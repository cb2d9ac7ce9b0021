// SPDX-License-Identifier: BSD-2-Clause
//
// The host's own request for a single lost frame: when it is made, and what the call sounds like.

#include <algorithm>
#include <cstring>
#include <span>

#include "tests/host/call.h"
#include "tests/support/ready_adapter.h"

namespace aiplc::host {
namespace {

constexpr int16_t kMarker = 1234;

// Stands for the worker: its prediction is a constant from the last missing frame on. Fails at the
// requests that fail says, which are numbered from 0.
class MarkingWorker : public ReadyAdapter {
  public:
    explicit MarkingWorker(std::function<bool(int)> fail = [](int) { return false; })
        : m_fail(std::move(fail)) {}
    int Process(InoutDetail &record, int /*timeoutMs*/) override {
        if (m_fail(requests++)) return -1;
        std::array<int16_t, AIPLC_WINDOW_SAMPLES> window;
        std::memcpy(window.data(), record.AudioIn, sizeof record.AudioIn);
        size_t hole = AIPLC_WINDOW_FRAMES - 1;
        const auto isMissing = [&window](size_t frame) {
            const auto samples = std::span(window).subspan(frame * 320, 320);
            return std::ranges::count(samples, 0) == 320;
        };
        while (hole > 0 && !isMissing(hole))
            --hole;
        std::fill(window.begin() + static_cast<std::ptrdiff_t>(hole * 320), window.end(), kMarker);
        std::memcpy(record.AudioOut, window.data(), sizeof record.AudioOut);
        return 0;
    }
    int requests = 0;

  private:
    std::function<bool(int)> m_fail;
};

ReceiverOptions With(MarkingWorker &worker, uint32_t sampleRate = 16000) {
    return {.sampleRate = sampleRate, .decoderComplexity = 5, .adapter = &worker};
}

bool IsMarked(const PlayedCall &call, size_t frame) {
    const auto samples = std::span(call.pcm).subspan(frame * 320, 320);
    return std::ranges::count(samples, kMarker) == 320;
}

TEST(SecondLook, FillsEverySingleLossBetweenReceivedFrames) {
    const Packets packets = Speech({.sampleRate = 16000}, 2);
    const std::vector<size_t> lost = {20, 30, 32, 40, 41, 50, 51, 52, 53, 60, 62, 64, 75};
    const std::vector<size_t> singles = {20, 30, 32, 60, 62, 64, 75};
    MarkingWorker worker;
    const PlayedCall call(packets, With(worker), Losing(lost));
    std::string sources(100, 'd');
    for (const size_t single : singles)
        sources[single] = '2';
    sources.replace(40, 2, "ii");
    sources.replace(50, 4, "eeii");
    EXPECT_EQ(call.sources, sources);
    for (const size_t single : singles)
        EXPECT_TRUE(IsMarked(call, single)) << single;
    EXPECT_EQ(call.frames[20].inferMode, AIPLC_INFER_GAP1_AHEAD2);
    EXPECT_EQ(call.frames[30].inferMode, AIPLC_INFER_GAP1_AHEAD1);

    const Statistics &counted = call.statistics;
    EXPECT_EQ(counted.secondLooks, 7U);
    EXPECT_EQ(counted.requests, 10U);  // and two for 50 to 53, one for 40 and 41
    EXPECT_EQ(worker.requests, 10);
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP1_AHEAD2], 0U);
    EXPECT_EQ(counted.decisionsByMode[AIPLC_INFER_GAP1_AHEAD2_OPUSPLC], 0U);
    EXPECT_EQ(counted.concealedSamples, lost.size() * 320);
    EXPECT_EQ(counted.concealmentEvents, 9U);

    ReceiverOptions off = With(worker);
    off.useSecondLook = false;
    std::ranges::replace(sources, '2', 'c');
    EXPECT_EQ(PlayedCall(packets, off, Losing(lost)).sources, sources);
}

TEST(SecondLook, IsMadeOnceAPullAndHoldsOffWhenItFails) {
    const Packets packets = Speech({.sampleRate = 16000}, 9.2);
    std::vector<size_t> lost;
    for (size_t i = 20; i <= 440; i += 10)
        lost.push_back(i);
    MarkingWorker dead([](int) { return true; });
    const PlayedCall call(packets, With(dead), Losing(lost));
    // A hold-off of 6, 12, 24, 48, 96 and again 96 frames ends before a loss every tenth frame.
    const std::vector<size_t> asked = {20, 30, 50, 80, 130, 230, 330, 430};
    for (const size_t frame : lost) {
        const OutputFrame &played = call.frames[frame];
        EXPECT_EQ(played.source, AIPLC_SOURCE_CODEC) << frame;
        EXPECT_EQ(played.requestFailed, std::ranges::count(asked, frame) == 1) << frame;
        EXPECT_EQ(played.heldOff, !played.requestFailed) << frame;
    }
    EXPECT_EQ(call.statistics.secondLooksFailed, asked.size());
    EXPECT_EQ(call.statistics.requestsFailed, asked.size());
    EXPECT_EQ(call.statistics.decisionsHeldOff, lost.size() - asked.size());
    // The frames around a failed request are as if nobody had been asked.
    EXPECT_EQ(call.pcm, PlayedCall(packets, NoWorker(16000), Losing(lost)).pcm);

    // One prediction ends the doubling: the failures at 30 and 50 hold off 6 frames each.
    MarkingWorker moody([](int request) { return request == 0 || request == 2; });
    const std::string sources = PlayedCall(packets, With(moody), Losing({20, 30, 50, 60})).sources;
    EXPECT_EQ(sources.substr(20, 1) + sources[30] + sources[50] + sources[60], "c2c2");
}

TEST(SecondLook, LeavesToLatePacketsWhatTheyBring) {
    const Packets packets = Speech({.sampleRate = 16000}, 1.2);
    for (const auto &[delay, source] : {std::pair(3, 'l'), {4, '2'}}) {
        MarkingWorker worker;
        const PlayedCall call(packets, With(worker), Losing({}, 20, 20, delay));
        EXPECT_EQ(call.sources.substr(18, 5), std::string("dd") + source + "dd");
        EXPECT_EQ(worker.requests, source == '2' ? 1 : 0);
        const Arrival without = source == '2' ? Losing({20}) : Losing({});
        EXPECT_EQ(call.pcm, PlayedCall(packets, With(worker), without).pcm) << delay;
    }
    // The packet behind a single loss is late itself, and brings the redundancy of the lost one.
    const Packets withFec =
        Speech({.sampleRate = 16000, .fec = true, .expectedLossPercent = 20}, 1.2);
    for (size_t i = 20; i < 26; ++i) {
        MarkingWorker worker;
        const PlayedCall call(withFec, With(worker), Losing({i}, i + 1, i + 1, 2));
        const bool isRecovered = call.statistics.framesBySource[AIPLC_SOURCE_FEC] == 1;
        EXPECT_EQ(call.sources.substr(i, 2), isRecovered ? "fl" : "2l") << i;
        EXPECT_EQ(worker.requests, isRecovered ? 0 : 1) << i;
    }
}

// The second half of the frame behind a filled one comes late: what the worker made of that frame
// fades into what is received of it.
TEST(SecondLook, GoesOnIntoALatePacketWithoutAStep) {
    const Packets packets = Speech({.sampleRate = 16000, .packetMs = 10}, 1.2);
    for (const uint32_t rate : {16000U, 48000U}) {
        MarkingWorker worker;
        const PlayedCall call(packets, With(worker, rate), Losing({40, 41}, 43, 43, 3));
        EXPECT_EQ(call.sources.substr(19, 4), "d2ld") << rate;
        if (rate == 48000) continue;
        EXPECT_TRUE(IsMarked(call, 20));
        // 320 steps lead from the marker to the received audio, whose samples are below 10000.
        EXPECT_NEAR(call.pcm[size_t{21} * 320], kMarker, 11234 / 320 + 2);
    }
}

TEST(SecondLook, KnowsPacketsOfAnyLengthAndPauses) {
    MarkingWorker worker;
    // Frame 20 is packets 40 and 41; half of frame 30 is missing.
    const Packets shortOnes = Speech({.sampleRate = 16000, .packetMs = 10}, 1);
    EXPECT_EQ(PlayedCall(shortOnes, With(worker), Losing({40, 41, 61})).sources.substr(19, 13),
              "d2dddddddddpd");
    EXPECT_EQ(worker.requests, 1);
    const Packets longOnes = Speech({.sampleRate = 16000, .packetMs = 60}, 1.2);
    EXPECT_EQ(PlayedCall(longOnes, With(worker), Losing({6})).sources.substr(17, 5), "deeid");
    EXPECT_EQ(worker.requests, 3);

    Pcm pcm = SpeechLike(16000, 1);
    pcm.resize(32000);
    const Packets pausing = Encode({.sampleRate = 16000, .dtx = true}, pcm);
    const PlayedCall paused(pausing, With(worker));
    EXPECT_GT(paused.statistics.framesBySource[AIPLC_SOURCE_DTX], 20U);
    EXPECT_EQ(worker.requests, 3);
}

}  // namespace
}  // namespace aiplc::host
