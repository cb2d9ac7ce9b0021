// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

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
            for (const auto &[first, last] : {std::pair(20, 20), {20, 21}, {1, 2}, {20, 59}}) {
                const auto frames = static_cast<size_t>(last - first + 1);
                const auto begin = static_cast<size_t>(first);
                const PlayedCall call =
                    Play(packets, Options(rate), Delaying(begin, static_cast<size_t>(last), delay));
                EXPECT_EQ(call.pcm, inTime.pcm)
                    << rate << " Hz, " << first << ", late by " << delay;
                EXPECT_EQ(call.Sources().substr(begin, frames), std::string(frames, 'l'));
                EXPECT_EQ(call.statistics.concealedSamples, 0U);
            }
        }
    }
}

TEST(LatePackets, PastTheLookAheadAreDiscarded) {
    const auto packets = Encode({.sampleRate = 16000}, SpeechLike(16000, 1));
    const PlayedCall call = Play(packets, Options(16000), Delaying(20, 20, 4));
    EXPECT_EQ(call.Sources().substr(19, 3), "dcd");
    EXPECT_EQ(call.statistics.packetsDiscarded, 1U);
    EXPECT_EQ(call.statistics.packetsLost, 0);
    ReceiverOptions punctual = Options(16000);
    punctual.useLatePackets = false;
    const PlayedCall strict = Play(packets, punctual, Delaying(20, 20, 1));
    EXPECT_EQ(strict.Sources().substr(19, 3), "dcd");
    EXPECT_EQ(strict.statistics.packetsDiscarded, 1U);
}

TEST(LatePackets, OfSeveralFramesAreUsedAsFarAsTheyCanBe) {
    // Packet 6 is frames 18 to 20.
    const auto packets = Encode({.sampleRate = 16000, .packetMs = 60}, SpeechLike(16000, 1.2));
    const PlayedCall inTime = Play(packets, Options(16000), InTime(), 60);
    const PlayedCall late = Play(packets, Options(16000), Delaying(6, 6, 4), 60);
    EXPECT_EQ(late.Sources().substr(17, 5), "dclld");
    for (const size_t frame : {20U, 21U})
        EXPECT_EQ(ErrorEnergy(late, inTime, frame), 0) << frame;
    ReceiverOptions punctual = Options(16000);
    punctual.useLatePackets = false;
    const PlayedCall strict = Play(packets, punctual, Delaying(6, 6, 1), 60);
    EXPECT_EQ(strict.Sources().substr(17, 5), "dcddd");
    EXPECT_EQ(strict.statistics.packetsDiscarded, 0U);
}

TEST(Fec, RecoversTheFramesBeforeThePacketThatCarriesIt) {
    for (const int packetMs : {20, 40, 60}) {
        SenderOptions sender = kFecSender;
        sender.packetMs = packetMs;
        const auto packets = Encode(sender, SpeechLike(16000, 2.4));
        const std::vector<size_t> lost = Recoverable(packets);
        ASSERT_GE(lost.size(), 4U);
        const PlayedCall whole = Play(packets, Options(16000), InTime(), 120);
        const PlayedCall fec = Play(packets, Options(16000), Losing(lost), 120);
        ReceiverOptions without = Options(16000);
        without.useFec = false;
        const PlayedCall concealed = Play(packets, without, Losing(lost), 120);
        double errorOfFec = 0;
        double errorOfCodec = 0;
        const auto perPacket = static_cast<size_t>(packetMs / 20);
        for (const size_t packet : lost) {
            const size_t first = packet * perPacket;
            EXPECT_EQ(fec.Sources().substr(first, perPacket), std::string(perPacket, 'f'));
            EXPECT_EQ(concealed.Sources().substr(first, perPacket), std::string(perPacket, 'c'));
            for (size_t frame = first; frame < first + perPacket; ++frame) {
                errorOfFec += ErrorEnergy(fec, whole, frame);
                errorOfCodec += ErrorEnergy(concealed, whole, frame);
            }
        }
        EXPECT_LT(errorOfFec, errorOfCodec / 3) << packetMs;
        EXPECT_EQ(fec.statistics.fecPacketsReceived - fec.statistics.fecPacketsDiscarded,
                  lost.size());
        EXPECT_EQ(fec.statistics.concealedSamples, 0U);
        EXPECT_EQ(fec.statistics.packetsLost, static_cast<int64_t>(lost.size()));
    }
}

// The library plays the frame after a concealed one from the codec's path, so the recovered audio
// must have reached that path too.
TEST(Fec, IsHeardAfterAFrameThatWasConcealed) {
    for (const uint32_t rate : {16000U, 48000U}) {
        SenderOptions sender = kFecSender;
        sender.sampleRate = rate;
        sender.maxBandwidth = 1103;
        const auto packets = Encode(sender, SpeechLike(rate, 2.4));
        std::vector<size_t> pairs;
        for (const size_t packet : Recoverable(packets))
            pairs.insert(pairs.end(), {packet - 1, packet});
        const PlayedCall whole = Play(packets, Options(rate), InTime());
        const PlayedCall fec = Play(packets, Options(rate), Losing(pairs));
        ReceiverOptions without = Options(rate);
        without.useFec = false;
        const PlayedCall concealed = Play(packets, without, Losing(pairs));
        ASSERT_GE(pairs.size(), 8U);
        double errorOfFec = 0;
        double errorOfCodec = 0;
        for (size_t i = 1; i < pairs.size(); i += 2) {
            EXPECT_EQ(fec.Sources().substr(pairs[i] - 1, 2), "cf") << rate;
            errorOfFec += ErrorEnergy(fec, whole, pairs[i]);
            errorOfCodec += ErrorEnergy(concealed, whole, pairs[i]);
        }
        EXPECT_LT(errorOfFec, errorOfCodec / 2) << rate;
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
    for (size_t i = 0; i < 160; ++i)
        ASSERT_EQ(call.pcm[20 * 320 + i], inTime.pcm[20 * 320 + i]) << i;
}

}  // namespace
}  // namespace aiplc::host
