// SPDX-License-Identifier: BSD-2-Clause
//
// The C interface of the receiver, with a call over its real library.

#include <aiplc/receiver.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host/redundant_audio.h"
#include "host/rtp_view.h"
#include "tests/host/call.h"

namespace aiplc::host {
namespace {

constexpr int kPayloadType = 111;

struct Destroyer {
    void operator()(AiPlcReceiver *receiver) const { AiPlcReceiverDestroy(receiver); }
};
using Handle = std::unique_ptr<AiPlcReceiver, Destroyer>;

AiPlcReceiverOptions Options(uint32_t rate = 16000) {
    AiPlcReceiverOptions options;
    AiPlcReceiverDefaults(&options);
    options.sampleRate = rate;
    options.predictor = AIPLC_PREDICTOR_IN_PROCESS;
    return options;
}

void KeepLine(void *text, int32_t /*level*/, const char *line) {
    *static_cast<std::string *>(text) += line + std::string("\n");
}

Handle Make(const AiPlcReceiverOptions &options) {
    AiPlcReceiver *receiver = nullptr;
    EXPECT_EQ(AiPlcReceiverCreate(&receiver, &options), AIPLC_RECEIVER_OK);
    return Handle(receiver);
}

AiPlcReceiverStatistics Counted(const Handle &receiver) {
    AiPlcReceiverStatistics statistics;
    statistics.structSize = sizeof statistics;
    EXPECT_EQ(AiPlcReceiverGetStatistics(receiver.get(), &statistics), AIPLC_RECEIVER_OK);
    return statistics;
}

int32_t PushRtp(const Handle &receiver, const RtpPacket &packet, uint32_t source,
                int payloadType = kPayloadType) {
    std::vector<uint8_t> bytes;
    WriteRtp({.payloadType = static_cast<uint8_t>(payloadType),
              .sequence = packet.sequenceNumber,
              .timestamp = packet.timestamp,
              .ssrc = source,
              .payload = packet.payload},
             bytes);
    return AiPlcReceiverPushRtp(receiver.get(), bytes.data(), bytes.size(), -1);
}

// A call that loses two of ten packets; pieces: samples a Pull.
Pcm Play(const Handle &receiver, const Packets &packets, bool asRtp, size_t piece) {
    Pcm pcm;
    std::vector<int16_t> samples(piece);
    for (size_t i = 0; i < packets.size(); ++i) {
        const RtpPacket &packet = packets[i];
        if (i % 10 < 8 && asRtp) {
            EXPECT_EQ(PushRtp(receiver, packet, 7), AIPLC_RECEIVER_OK);
        } else if (i % 10 < 8) {
            EXPECT_EQ(
                AiPlcReceiverPush(receiver.get(), packet.payload.data(), packet.payload.size(),
                                  packet.sequenceNumber, packet.timestamp, -1),
                AIPLC_RECEIVER_OK);
        }
        for (size_t pulled = 0; pulled < 320; pulled += piece) {
            EXPECT_EQ(AiPlcReceiverPull(receiver.get(), samples.data(), piece), AIPLC_RECEIVER_OK);
            pcm.insert(pcm.end(), samples.begin(), samples.end());
        }
    }
    return pcm;
}

TEST(ReceiverInterface, PlaysWhatTheEngineDoesHoweverItIsAsked) {
    const Packets packets = Speech({.sampleRate = 16000}, 3);
    Receiver engine({.sampleRate = 16000, .predictor = AIPLC_PREDICTOR_IN_PROCESS});
    Pcm expected;
    for (size_t i = 0; i < packets.size(); ++i) {
        if (i % 10 < 8) engine.Push(packets[i]);
        std::ranges::copy(engine.Pull().samples, std::back_inserter(expected));
    }
    const Handle receiver = Make(Options());
    EXPECT_EQ(AiPlcReceiverPredictorRunning(receiver.get()), 1);
    EXPECT_TRUE(Play(receiver, packets, false, 320) == expected);
    const uint64_t requests = Counted(receiver).requests;
    EXPECT_GT(requests, 10U);
    for (const bool asRtp : {false, true}) {
        ASSERT_EQ(AiPlcReceiverReset(receiver.get()), AIPLC_RECEIVER_OK);
        EXPECT_TRUE(Play(receiver, packets, asRtp, 160) == expected);
        EXPECT_EQ(Counted(receiver).requests, requests);
    }
    AiPlcReceiverFrame frame;
    frame.structSize = sizeof frame;
    ASSERT_EQ(AiPlcReceiverLastFrame(receiver.get(), &frame), AIPLC_RECEIVER_OK);
    EXPECT_EQ(frame.frame, static_cast<int64_t>(packets.size()) - 1 - 3);
}

TEST(ReceiverInterface, RefusesWhatItCannotDoAndSaysWhy) {
    const auto refusal = [](auto change, int32_t expected) {
        std::string log;
        AiPlcReceiverOptions options = Options();
        options.log = KeepLine;
        options.logUserData = &log;
        change(options);
        AiPlcReceiver *receiver = reinterpret_cast<AiPlcReceiver *>(&log);
        EXPECT_EQ(AiPlcReceiverCreate(&receiver, &options), expected) << log;
        EXPECT_EQ(receiver, nullptr);
        return log;
    };
    const auto option = AIPLC_RECEIVER_E_OPTION;
    EXPECT_EQ(refusal([](auto &options) { options.sampleRate = 8000; }, option),
              "sampleRate is 8000, must be 16000 or 48000\n");
    EXPECT_EQ(refusal([](auto &options) { options.decoderComplexity = 11; }, option),
              "decoderComplexity is 11, must be 0 to 10\n");
    EXPECT_EQ(refusal([](auto &options) { options.minDelayMs = 600; }, option),
              "maxDelayMs is 500, must be 600 to 2000\n");
    EXPECT_EQ(
        refusal([](auto &options) { options.payloadType = options.redPayloadType = 96; }, option),
        "redPayloadType and payloadType are both 96, must differ\n");
    EXPECT_EQ(refusal([](auto &options) { options.redPayloadType = 64; }, option),
              "redPayloadType is 64, must be -1 to 63 or 96 to 127: the others are RTCP's "
              "(RFC 5761)\n");
    EXPECT_NE(refusal([](auto &options) { options.modelPath = "/nowhere/a.model"; },
                      AIPLC_RECEIVER_E_MODEL)
                  .find("/nowhere/a.model"),
              std::string::npos);
    refusal([](auto &options) { options.structSize = 8; }, AIPLC_RECEIVER_E_ARGUMENT);

    const AiPlcReceiverOptions options = Options();
    AiPlcReceiver *made = nullptr;
    EXPECT_EQ(AiPlcReceiverCreate(nullptr, &options), AIPLC_RECEIVER_E_ARGUMENT);
    EXPECT_EQ(AiPlcReceiverCreate(&made, nullptr), AIPLC_RECEIVER_E_ARGUMENT);
    const Handle receiver = Make(options);
    std::vector<int16_t> samples(32000);
    for (const unsigned count : {0U, 1U, 159U, 161U, 481U, 16160U})
        EXPECT_EQ(AiPlcReceiverPull(receiver.get(), samples.data(), count),
                  AIPLC_RECEIVER_E_ARGUMENT)
            << count;
    EXPECT_EQ(AiPlcReceiverPull(receiver.get(), samples.data(), 16000), AIPLC_RECEIVER_OK);
    EXPECT_EQ(AiPlcReceiverPull(receiver.get(), nullptr, 160), AIPLC_RECEIVER_E_ARGUMENT);
    EXPECT_EQ(AiPlcReceiverPush(receiver.get(), nullptr, 1, 0, 0, 0), AIPLC_RECEIVER_E_ARGUMENT);
    EXPECT_EQ(AiPlcReceiverPush(receiver.get(), nullptr, 0, 0, 0, 0), AIPLC_RECEIVER_OK);
    EXPECT_EQ(Counted(receiver).packetsUndecodable, 1U);
    EXPECT_EQ(AiPlcReceiverPushRtp(receiver.get(), "x", 1, 0), AIPLC_RECEIVER_E_PACKET);
    AiPlcReceiverDestroy(nullptr);
    EXPECT_EQ(AiPlcReceiverReset(nullptr), AIPLC_RECEIVER_E_ARGUMENT);
    EXPECT_EQ(AiPlcReceiverGetStatistics(nullptr, nullptr), AIPLC_RECEIVER_E_ARGUMENT);
    EXPECT_EQ(AiPlcReceiverLastFrame(receiver.get(), nullptr), AIPLC_RECEIVER_E_ARGUMENT);
    EXPECT_STREQ(AiPlcFrameSourceName(-1), "unknown");
}

// A program that was built with a shorter record gets its part and nothing behind it.
TEST(ReceiverInterface, WritesNoMoreThanTheCallersRecordHolds) {
    const Handle receiver = Make(Options());
    AiPlcReceiverStatistics statistics;
    std::memset(&statistics, 0x55, sizeof statistics);
    statistics.structSize = offsetof(AiPlcReceiverStatistics, packetsLost);
    ASSERT_EQ(AiPlcReceiverGetStatistics(receiver.get(), &statistics), AIPLC_RECEIVER_OK);
    EXPECT_EQ(statistics.packetsReceived, 0U);
    EXPECT_EQ(statistics.packetsLost, 0x5555555555555555);
    statistics.structSize = 4;
    EXPECT_EQ(AiPlcReceiverGetStatistics(receiver.get(), &statistics), AIPLC_RECEIVER_E_ARGUMENT);
}

TEST(ReceiverInterface, FollowsOneSourceAndOnePayloadType) {
    const Packets packets = Speech({.sampleRate = 16000}, 4);
    std::string log;
    AiPlcReceiverOptions options = Options();
    options.payloadType = kPayloadType;
    options.log = KeepLine;
    options.logUserData = &log;
    const Handle receiver = Make(options);
    std::vector<int16_t> samples(320);
    std::string sources;
    for (size_t i = 0; i < packets.size(); ++i) {
        // A stray packet of another source now and then, and telephone events, change nothing.
        if (i % 7 == 3) {
            EXPECT_EQ(PushRtp(receiver, {.sequenceNumber = 1, .payload = {0, 1}}, 99),
                      AIPLC_RECEIVER_E_PACKET);
            EXPECT_EQ(PushRtp(receiver, packets[i], 7, 101), AIPLC_RECEIVER_E_PACKET);
        }
        // In mid-call the sender is exchanged for another, with numbers of its own.
        RtpPacket packet = packets[i];
        const bool isSecond = i >= 102;
        if (isSecond) {
            packet.sequenceNumber = static_cast<uint16_t>(packet.sequenceNumber + 40000);
            packet.timestamp += 3'000'000'000U;
        }
        PushRtp(receiver, packet, isSecond ? 8 : 7);
        ASSERT_EQ(AiPlcReceiverPull(receiver.get(), samples.data(), 320), AIPLC_RECEIVER_OK);
        AiPlcReceiverFrame frame;
        frame.structSize = sizeof frame;
        AiPlcReceiverLastFrame(receiver.get(), &frame);
        if (frame.frame >= 0) sources += frame.source == AIPLC_SOURCE_DECODED ? 'd' : '-';
    }
    // The first packet of the new source is on probation and lost.
    EXPECT_EQ(sources, std::string(102, 'd') + "-" + std::string(sources.size() - 103, 'd'));
    const AiPlcReceiverStatistics counted = Counted(receiver);
    EXPECT_EQ(counted.sourceChanges, 1U);
    EXPECT_EQ(counted.packetsForeign, 2 * ((packets.size() + 3) / 7) + 1);
    EXPECT_EQ(log, "the stream goes on from source 8\n");
}

// A call in redundant audio that loses two packets in a row, with one in plain Opus amid it.
TEST(ReceiverInterface, PlaysRedundantAudio) {
    constexpr int kRed = 63;
    const Packets packets = Speech({.sampleRate = 16000, .redundancy = 2}, 1);
    AiPlcReceiverOptions options = Options();
    options.payloadType = kPayloadType;
    options.redPayloadType = kRed;
    const Handle receiver = Make(options);
    std::vector<int16_t> samples(320);
    size_t bytes = 0;
    for (size_t i = 0; i < packets.size(); ++i) {
        RtpPacket packet = packets[i];
        if (i != 30) packet.payload = WriteRedundantAudio(packet, kPayloadType);
        if (i == 40) packet.payload = {0xEF, 0xFF, 0xFF, 0xFF, 0x6F};  // lengths that lie
        if (i == 20 || i == 21) continue;
        bytes += packet.payload.size();
        EXPECT_EQ(PushRtp(receiver, packet, 7, i == 30 ? kPayloadType : kRed), AIPLC_RECEIVER_OK);
        AiPlcReceiverPull(receiver.get(), samples.data(), 320);
    }
    const AiPlcReceiverStatistics counted = Counted(receiver);
    EXPECT_EQ(counted.bytesReceived, bytes);
    EXPECT_EQ(counted.packetsReceived, packets.size() - 2);
    EXPECT_EQ(counted.packetsLost, 2);
    EXPECT_EQ(counted.packetsUndecodable, 1U);
    EXPECT_EQ(counted.framesBySource[AIPLC_SOURCE_REDUNDANT], 3U);
    // The first packet has none to repeat, the second has one; 30 and 40 gave none.
    EXPECT_EQ(counted.redundantBlocksReceived, 2 * (packets.size() - 2) - 3 - 4);
    EXPECT_EQ(counted.redundantBlocksUsed, 3U);
}

}  // namespace
}  // namespace aiplc::host
