// SPDX-License-Identifier: BSD-2-Clause
//
// The element in a harness, against the receiver library fed by hand.

#include <aiplc/receiver.h>
#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/host/call.h"

namespace aiplc::host {
namespace {

constexpr uint64_t kFrame = 20 * GST_MSECOND;

bool IsLost(size_t index) {
    return index % 10 == 4 || index % 10 == 5;
}

// The receiver's output for the packets that are not lost, aligned with them.
Pcm Reference(const Packets &packets, uint32_t rate) {
    AiPlcReceiverOptions options;
    AiPlcReceiverDefaults(&options);
    options.sampleRate = rate;
    options.predictor = AIPLC_PREDICTOR_IN_PROCESS;
    options.expectPauses = 0;
    AiPlcReceiver *receiver = nullptr;
    EXPECT_EQ(AiPlcReceiverCreate(&receiver, &options), AIPLC_RECEIVER_OK);
    const size_t frame = rate / 50;
    Pcm pcm((packets.size() + 4) * frame);
    for (size_t i = 0; i < packets.size() + 4; ++i) {
        if (i < packets.size() && !IsLost(i))
            AiPlcReceiverPush(receiver, packets[i].payload.data(), packets[i].payload.size(),
                              packets[i].sequenceNumber, packets[i].timestamp, -1);
        AiPlcReceiverPull(receiver, pcm.data() + i * frame, frame);
    }
    pcm.erase(pcm.begin(), pcm.begin() + AiPlcReceiverDelay(receiver));
    pcm.resize(packets.size() * frame);
    AiPlcReceiverDestroy(receiver);
    return pcm;
}

// An element between two pads of the test's own.
class Harness {
  public:
    explicit Harness(uint32_t rate) : m_harness(gst_harness_new("aiplcopusdec")) {
        SetRate(rate);
        gst_harness_set_src_caps_str(m_harness, "audio/x-opus,channel-mapping-family=0");
    }
    ~Harness() { gst_harness_teardown(m_harness); }
    Harness(const Harness &) = delete;
    Harness &operator=(const Harness &) = delete;

    void SetRate(uint32_t rate) {
        const std::string caps = "audio/x-raw,rate=" + std::to_string(rate);
        gst_harness_set_sink_caps_str(m_harness, caps.c_str());
    }
    GstFlowReturn Push(const std::vector<uint8_t> &payload, GstClockTime time, guint flags = 0) {
        GstBuffer *buffer = gst_buffer_new_allocate(nullptr, payload.size(), nullptr);
        gst_buffer_fill(buffer, 0, payload.data(), payload.size());
        GST_BUFFER_PTS(buffer) = time;
        GST_BUFFER_FLAG_SET(buffer, flags);
        return gst_harness_push(m_harness, buffer);
    }
    void Send(GstEvent *event) { gst_harness_push_event(m_harness, event); }
    void PlayWithGapEvents(const Packets &packets, GstClockTime begin) {
        for (size_t i = 0; i < packets.size(); ++i) {
            if (IsLost(i)) {
                Send(gst_event_new_gap(begin + i * kFrame, kFrame));
            } else {
                EXPECT_EQ(Push(packets[i].payload, begin + i * kFrame), GST_FLOW_OK);
            }
        }
    }

    // All sound so far. Each buffer begins where the one before ended, the first one at begin.
    Pcm Sound(uint32_t rate, GstClockTime begin) {
        Pcm pcm;
        GstClockTime next = begin;
        while (GstBuffer *buffer = gst_harness_try_pull(m_harness)) {
            EXPECT_EQ(GST_BUFFER_PTS(buffer), next);
            next += GST_BUFFER_DURATION(buffer);
            GstMapInfo map;
            gst_buffer_map(buffer, &map, GST_MAP_READ);
            const auto *samples = reinterpret_cast<const int16_t *>(map.data);
            pcm.insert(pcm.end(), samples, samples + map.size / sizeof *samples);
            gst_buffer_unmap(buffer, &map);
            gst_buffer_unref(buffer);
        }
        EXPECT_NEAR(static_cast<double>(next - begin), static_cast<double>(pcm.size()) * 1e9 / rate,
                    2);
        return pcm;
    }
    uint64_t Counted(const char *name) {
        GstStructure *stats = nullptr;
        g_object_get(m_harness->element, "stats", &stats, nullptr);
        guint64 value = 0;
        gint64 difference = 0;
        if (gst_structure_get_int64(stats, name, &difference) != FALSE) {
            value = static_cast<guint64>(difference);
        } else {
            EXPECT_TRUE(gst_structure_get_uint64(stats, name, &value)) << name;
        }
        gst_structure_free(stats);
        return value;
    }
    GstHarness *Get() { return m_harness; }

  private:
    GstHarness *m_harness;
};

TEST(OpusDec, PlaysACallWithLossesAsTheReceiverDoes) {
    for (const uint32_t rate : {16000U, 48000U}) {
        const Packets packets = Speech({.sampleRate = rate}, 3);
        Harness harness(rate);
        harness.PlayWithGapEvents(packets, GST_SECOND);
        harness.Send(gst_event_new_eos());
        EXPECT_TRUE(harness.Sound(rate, GST_SECOND) == Reference(packets, rate)) << rate;
        EXPECT_EQ(harness.Counted("packetsLost"), 2 * (packets.size() / 10));
        EXPECT_GT(harness.Counted("requests"), 10U);
    }
}

// Clock recovery moves packets by some milliseconds, or by a whole frame for a moment; a buffer
// behind a loss is marked.
TEST(OpusDec, FindsLossesInUnevenTimesWithoutEvents) {
    const Packets packets = Speech({.sampleRate = 16000}, 3);
    Harness harness(16000);
    for (size_t i = 0; i < packets.size(); ++i) {
        if (IsLost(i)) continue;
        uint64_t moved = i == 0 ? 0 : i * 7 % 9 * GST_MSECOND;
        if (i % 50 == 19) moved = 19 * GST_MSECOND;
        harness.Push(packets[i].payload, GST_SECOND + i * kFrame + moved,
                     i > 0 && IsLost(i - 1) ? GST_BUFFER_FLAG_DISCONT : 0);
    }
    harness.Send(gst_event_new_eos());
    EXPECT_TRUE(harness.Sound(16000, GST_SECOND) == Reference(packets, 16000));
}

TEST(OpusDec, FillsPausesOfTheSenderWithoutCountingLosses) {
    const Packets packets = Speech({.sampleRate = 16000}, 2);
    Harness harness(16000);
    for (size_t i = 0; i < 60; ++i) {
        // Ten frames in which nothing was sent, and three that are marked so.
        if (i >= 20 && i < 30) continue;
        const bool isMarked = i >= 40 && i < 43;
        harness.Push(isMarked ? std::vector<uint8_t>() : packets[i].payload, i * kFrame,
                     isMarked ? GST_BUFFER_FLAG_GAP : 0);
    }
    harness.Send(gst_event_new_eos());
    EXPECT_EQ(harness.Sound(16000, 0).size(), 60U * 320);
    EXPECT_EQ(harness.Counted("frames-dtx"), 13U);
    EXPECT_EQ(harness.Counted("packetsLost"), 0U);
    EXPECT_EQ(harness.Counted("concealedSamples"), 0U);
}

TEST(OpusDec, AnnouncesItsLatency) {
    const auto latency = [](uint32_t rate, int packetMs) {
        Harness harness(rate);
        gst_harness_set_upstream_latency(harness.Get(), 10 * GST_MSECOND);
        harness.Push(Speech({.sampleRate = rate, .packetMs = packetMs}, 0.1)[0].payload, 0);
        return gst_harness_query_latency(harness.Get());
    };
    EXPECT_EQ(latency(16000, 20), 70 * GST_MSECOND);
    // The filter bank's 44 samples.
    EXPECT_NEAR(static_cast<double>(latency(48000, 20)), 70e6 + 44e9 / 48000, 1);
    // The second packet completes the frame.
    EXPECT_EQ(latency(16000, 10), 80 * GST_MSECOND);
}

TEST(OpusDec, PlaysTheLookAheadAtTheEndAndDropsItAtAFlush) {
    const Packets packets = Speech({.sampleRate = 16000}, 1);
    Harness harness(16000);
    for (size_t i = 0; i < 5; ++i)
        harness.Push(packets[i].payload, i * kFrame);
    EXPECT_EQ(harness.Sound(16000, 0).size(), 2U * 320);
    harness.Send(gst_event_new_flush_start());
    harness.Send(gst_event_new_flush_stop(TRUE));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.start = 100 * GST_SECOND;
    harness.Send(gst_event_new_segment(&segment));
    harness.PlayWithGapEvents(packets, 100 * GST_SECOND);
    // A new segment ends the call: all that was sent is played, and what follows begins anew.
    harness.Send(gst_event_new_segment(&segment));
    const Pcm reference = Reference(packets, 16000);
    EXPECT_TRUE(harness.Sound(16000, 100 * GST_SECOND) == reference);
    // A jump too far for a gap does the same; sound before the segment's start is cut off.
    harness.PlayWithGapEvents(packets, 500 * GST_SECOND);
    harness.Push(packets[0].payload, 900 * GST_SECOND);
    EXPECT_TRUE(harness.Sound(16000, 500 * GST_SECOND) == reference);
    harness.PlayWithGapEvents(packets, 100 * GST_SECOND - 2 * kFrame);
    harness.Send(gst_event_new_eos());
    gst_buffer_unref(gst_harness_pull(harness.Get()));  // of the packet at 900 s
    EXPECT_TRUE(harness.Sound(16000, 100 * GST_SECOND) ==
                Pcm(reference.begin() + 2 * 320, reference.end()));
}

TEST(OpusDec, FollowsARateThatIsChangedBehindIt) {
    const Packets packets = Speech({.sampleRate = 16000}, 1);
    Harness harness(16000);
    for (size_t i = 0; i < 20; ++i)
        harness.Push(packets[i].payload, i * kFrame);
    harness.SetRate(48000);
    for (size_t i = 20; i < 40; ++i)
        harness.Push(packets[i].payload, i * kFrame);
    harness.Send(gst_event_new_eos());
    size_t samples = 0;
    for (guint left = gst_harness_buffers_in_queue(harness.Get()); left > 0; --left) {
        GstBuffer *buffer = gst_harness_pull(harness.Get());
        samples += gst_buffer_get_size(buffer) / 2;
        gst_buffer_unref(buffer);
    }
    EXPECT_EQ(samples, 20U * 320 + 20U * 960);
    GstCaps *caps = gst_pad_get_current_caps(harness.Get()->sinkpad);
    gint rate = 0;
    gst_structure_get_int(gst_caps_get_structure(caps, 0), "rate", &rate);
    EXPECT_EQ(rate, 48000);
    gst_caps_unref(caps);
}

TEST(OpusDec, SurvivesAnyBytesAndAnyTimes) {
    const Packets packets = Speech({.sampleRate = 16000}, 1);
    Harness harness(16000);
    std::mt19937 random(5);
    GstClockTime time = 0;
    for (int i = 0; i < 2000; ++i) {
        std::vector<uint8_t> payload = packets[random() % packets.size()].payload;
        if (random() % 3 == 0) payload.resize(random() % 100);
        for (uint8_t &byte : payload)
            if (random() % 8 == 0) byte = static_cast<uint8_t>(random());
        switch (random() % 12) {
            case 0:
                time = GST_CLOCK_TIME_NONE;
                break;
            case 1:
                time = (GstClockTime{random()} << 32) + random();
                break;
            case 2:
                time -= random() % (3 * kFrame);
                break;
            case 3:
                harness.Send(gst_event_new_gap(time == GST_CLOCK_TIME_NONE ? 0 : time,
                                               random() % GST_SECOND));
                break;
            default:
                time += kFrame;
                break;
        }
        ASSERT_EQ(harness.Push(payload, time, random() % 20 == 0 ? GST_BUFFER_FLAG_DISCONT : 0),
                  GST_FLOW_OK);
        while (GstBuffer *buffer = gst_harness_try_pull(harness.Get()))
            gst_buffer_unref(buffer);
    }
    harness.Send(gst_event_new_flush_start());
    harness.Send(gst_event_new_flush_stop(TRUE));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    harness.Send(gst_event_new_segment(&segment));
    harness.PlayWithGapEvents(packets, 0);
    harness.Send(gst_event_new_eos());
    EXPECT_TRUE(harness.Sound(16000, 0) == Reference(packets, 16000));
}

TEST(OpusDec, NamesTheModelThatIsMissing) {
    GstElement *element = gst_parse_launch("aiplcopusdec model=/nowhere/a.model", nullptr);
    GstBus *bus = gst_bus_new();
    gst_element_set_bus(element, bus);
    GstHarness *harness = gst_harness_new_with_element(element, "sink", "src");
    gst_harness_set_src_caps_str(harness, "audio/x-opus,channel-mapping-family=0");
    EXPECT_EQ(gst_harness_push(harness, gst_buffer_new_allocate(nullptr, 4, nullptr)),
              GST_FLOW_NOT_NEGOTIATED);
    GstMessage *message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
    ASSERT_NE(message, nullptr);
    GError *error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    EXPECT_NE(std::string(error->message).find("/nowhere/a.model"), std::string::npos);
    g_error_free(error);
    gst_message_unref(message);
    gst_element_set_bus(element, nullptr);
    gst_object_unref(bus);
    gst_harness_teardown(harness);
    gst_object_unref(element);
}

}  // namespace
}  // namespace aiplc::host
