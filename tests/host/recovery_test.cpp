// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>

#include "host/opus_packet.h"
#include "tests/host/call.h"

namespace aiplc::host {
namespace {

constexpr SenderOptions kFecSender{
    .sampleRate = 16000, .bitrate = 24000, .fec = true, .expectedLossPercent = 20};

ReceiverOptions Options(uint32_t rate) {
    return {.sampleRate = rate, .useWorker = false};
}

// Every packet from one index up to another comes some frames after it was due.
Arrival Delaying(size_t first, size_t last, int64_t frames) {
    return [=](size_t index, int64_t due) {
        return std::optional(index >= first && index <= last ? due + frames : due);
    };
}

double ErrorEnergy(const PlayedCall &call, const PlayedCall &truth, size_t frame) {
    const size_t samples = call.pcm.size() / call.frames.size();
    double error = 0;
    for (size_t i = frame * samples; i < (frame + 1) * samples; ++i)
        error += std::pow(call.pcm[i] - truth.pcm[i], 2);
    return error;
}

// Every fifth packet or so, where the packet after it can repeat it.
std::vector<size_t> Recoverable(const std::vector<RtpPacket> &packets) {
    std::vector<size_t> lost;
    for (size_t i = 3; i + 1 < packets.size(); i += 5) {
        if (ParseOpusPacket(packets[i + 1].payload)->redundancy) lost.push_back(i);
    }
    return lost;
}

TEST(LatePackets, WithinTheLookAheadLeaveNoTrace) {
    for (const uint32_t rate : {16000U, 48000U}) {
        const auto packets = Encode({.sampleRate = rate}, SpeechLike(rate, 1.2));
        const PlayedCall inTime = Play(packets, Options(rate), InTime());
        for (int64_t delay = 1; delay <= 3; ++delay) {
            for (const auto &[first, last] :
                 {std::pair<size_t, size_t>(20, 20), {20, 21}, {1, 2}, {20, 59}}) {
                const size_t frames = last - first + 1;
                const PlayedCall call = Play(packets, Options(rate), Delaying(first, last, delay));
                EXPECT_EQ(call.pcm, inTime.pcm)
                    << rate << " Hz, " << first << ", late by " << delay;
                EXPECT_EQ(call.Sources().substr(first, frames), std::string(frames, 'l'));
                EXPECT_EQ(call.statistics.concealedSamples, 0U);
            }
        }
    }
}

TEST(LatePackets, AreUsedAsFarAsTheyCanBe) {
    ReceiverOptions punctual = Options(16000);
    punctual.useLatePackets = false;
    struct Case {
        std::string sources;  // of frames 17 to 21
        size_t packet;
        int64_t delay;
        uint64_t discarded;
        ReceiverOptions options;
        int packetMs;
    };
    const Case cases[] = {{"dddcd", 20, 4, 1, Options(16000), 20},
                          {"dddcd", 20, 1, 1, punctual, 20},
                          {"dclld", 6, 4, 0, Options(16000), 60},  // the packet of 18 to 20
                          {"dcddd", 6, 1, 0, punctual, 60}};
    for (const Case &one : cases) {
        const auto packets =
            Encode({.sampleRate = 16000, .packetMs = one.packetMs}, SpeechLike(16000, 1.2));
        const PlayedCall call =
            Play(packets, one.options, Delaying(one.packet, one.packet, one.delay), 60);
        EXPECT_EQ(call.Sources().substr(17, 5), one.sources);
        EXPECT_EQ(call.statistics.packetsDiscarded, one.discarded);
        EXPECT_EQ(call.statistics.packetsLost, 0);
        // With its packet decoded from where it belongs, a frame is as if nothing had happened.
        const PlayedCall inTime = Play(packets, Options(16000), InTime(), 60);
        if (one.sources == "dclld") {
            EXPECT_EQ(ErrorEnergy(call, inTime, 20), 0);
        }
    }
}

// With pairs, two packets in a row are lost and the second one comes back. The library plays a
// frame after a concealed one from the codec's path, so that the recovered audio must be there too.
TEST(Fec, RecoversTheFramesBeforeThePacketThatCarriesIt) {
    const std::tuple<uint32_t, int, bool> cases[] = {{16000, 20, false},
                                                     {16000, 40, false},
                                                     {16000, 60, false},
                                                     {16000, 20, true},
                                                     {48000, 20, true}};
    for (const auto &[rate, packetMs, pairs] : cases) {
        SenderOptions sender = kFecSender;
        sender.sampleRate = rate;
        sender.packetMs = packetMs;
        const auto packets = Encode(sender, SpeechLike(rate, 2.4));
        const std::vector<size_t> recoverable = Recoverable(packets);
        ASSERT_GE(recoverable.size(), 4U);
        std::vector<size_t> lost = recoverable;
        for (const size_t packet : recoverable) {
            if (pairs) lost.push_back(packet - 1);
        }
        ReceiverOptions without = Options(rate);
        without.useFec = false;
        const PlayedCall whole = Play(packets, Options(rate), InTime(), 120);
        const PlayedCall fec = Play(packets, Options(rate), Losing(lost), 120);
        const PlayedCall codec = Play(packets, without, Losing(lost), 120);

        double errorOfFec = 0;
        double errorOfCodec = 0;
        const auto perPacket = static_cast<size_t>(packetMs / 20);
        for (const size_t packet : recoverable) {
            for (size_t frame = packet * perPacket; frame < (packet + 1) * perPacket; ++frame) {
                EXPECT_EQ(fec.sources[frame], FrameSource::fec) << packetMs << ", " << frame;
                EXPECT_EQ(codec.sources[frame], FrameSource::codec);
                errorOfFec += ErrorEnergy(fec, whole, frame);
                errorOfCodec += ErrorEnergy(codec, whole, frame);
            }
        }
        EXPECT_LT(errorOfFec, errorOfCodec / 2) << rate << ", " << packetMs;
        const Statistics &counted = fec.statistics;
        EXPECT_EQ(counted.fecPacketsReceived - counted.fecPacketsDiscarded, recoverable.size());
        EXPECT_EQ(counted.Frames(FrameSource::codec), pairs ? recoverable.size() : 0);
        EXPECT_EQ(counted.packetsLost, static_cast<int64_t>(lost.size()));
    }
}

TEST(Fec, ActsAtOnceWhenThePacketAfterIsAlreadyThere) {
    const auto packets = Encode(kFecSender, SpeechLike(16000, 1.2));
    const size_t lost = Recoverable(packets).at(1);
    const auto early = [lost](size_t index, int64_t due) -> std::optional<int64_t> {
        if (index == lost) return std::nullopt;
        return std::max<int64_t>(due - 1, 0);
    };
    const PlayedCall call = Play(packets, Options(16000), early);
    EXPECT_EQ(call.pcm, Play(packets, Options(16000), Losing({lost})).pcm);
    EXPECT_EQ(call.Sources().substr(lost - 1, 3), "dfd");
}

TEST(PartialFrames, HaveTheMissingHalfConcealed) {
    // Packet 41 is the second half of frame 20.
    const auto packets = Encode({.sampleRate = 16000, .packetMs = 10}, SpeechLike(16000, 1));
    const PlayedCall inTime = Play(packets, Options(16000), InTime());
    const PlayedCall call = Play(packets, Options(16000), Losing({41}));
    EXPECT_EQ(call.Sources().substr(19, 3), "dpd");
    EXPECT_EQ(call.statistics.concealedSamples, 160U);
    const auto frame = static_cast<ptrdiff_t>(20) * 320;
    EXPECT_TRUE(std::equal(call.pcm.begin() + frame, call.pcm.begin() + frame + 160,
                           inTime.pcm.begin() + frame));
}

}  // namespace
}  // namespace aiplc::host
