// SPDX-License-Identifier: BSD-2-Clause
//
// A call in real time between two pipelines, over UDP on the loopback interface.

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace aiplc::gst {
namespace {

constexpr guint kPackets = 101;

class Pipeline {
  public:
    explicit Pipeline(const std::string &launch) {
        GError *error = nullptr;
        m_pipeline = gst_parse_launch(launch.c_str(), &error);
        EXPECT_EQ(error, nullptr) << error->message;
    }
    ~Pipeline() {
        gst_element_set_state(m_pipeline, GST_STATE_NULL);
        gst_object_unref(m_pipeline);
    }
    Pipeline(const Pipeline &) = delete;
    Pipeline &operator=(const Pipeline &) = delete;

    GstElement *operator[](const char *name) {
        GstElement *element = gst_bin_get_by_name(GST_BIN(m_pipeline), name);
        gst_object_unref(element);  // the pipeline has it
        return element;
    }
    GstElement *Get() { return m_pipeline; }
    void SetState(GstState state) { gst_element_set_state(m_pipeline, state); }
    void Probe(const char *name, const char *pad, GstPadProbeCallback callback, gpointer data) {
        GstPad *found = gst_element_get_static_pad((*this)[name], pad);
        gst_pad_add_probe(found, GST_PAD_PROBE_TYPE_BUFFER, callback, data, nullptr);
        gst_object_unref(found);
    }
    // False after 30 s without such a message.
    bool WaitFor(GstMessageType type) {
        GstBus *bus = gst_element_get_bus(m_pipeline);
        GstMessage *message = gst_bus_timed_pop_filtered(
            bus, 30 * GST_SECOND, static_cast<GstMessageType>(type | GST_MESSAGE_ERROR));
        const bool isThere = message != nullptr && GST_MESSAGE_TYPE(message) == type;
        if (message != nullptr) gst_message_unref(message);
        gst_object_unref(bus);
        return isThere;
    }

  private:
    GstElement *m_pipeline = nullptr;
};

// Drops the tenth of ten packets.
GstPadProbeReturn Drop(GstPad * /*pad*/, GstPadProbeInfo * /*info*/, gpointer count) {
    return ++*static_cast<guint *>(count) % 10 == 0 ? GST_PAD_PROBE_DROP : GST_PAD_PROBE_OK;
}

// Says on the bus when the last packet is there.
GstPadProbeReturn Await(GstPad *pad, GstPadProbeInfo * /*info*/, gpointer count) {
    if (++*static_cast<guint *>(count) == kPackets - kPackets / 10) {
        GstElement *parent = gst_pad_get_parent_element(pad);
        gst_element_post_message(
            parent,
            gst_message_new_application(GST_OBJECT(parent), gst_structure_new_empty("arrived")));
        gst_object_unref(parent);
    }
    return GST_PAD_PROBE_OK;
}

TEST(Loopback, AConcealedCallHasTheLengthOfTheOneThatWasSent) {
    for (const char *name : {"audiotestsrc", "opusenc", "rtpopuspay", "udpsink", "udpsrc",
                             "rtpjitterbuffer", "rtpopusdepay"}) {
        GstElementFactory *factory = gst_element_factory_find(name);
        if (factory == nullptr) GTEST_SKIP() << "GStreamer has no element " << name;
        gst_object_unref(factory);
    }
    const std::string file =
        testing::TempDir() + "aiplc_loopback_" + std::to_string(g_random_int()) + ".pcm";
    Pipeline receiver(
        "udpsrc name=source address=127.0.0.1 port=0 caps=application/x-rtp,media=audio,"
        "clock-rate=48000,encoding-name=OPUS,payload=96 ! rtpjitterbuffer do-lost=true mode=none "
        "latency=40 "
        "! rtpopusdepay ! aiplcopusdec name=decoder ! audio/x-raw,rate=16000 ! filesink location=" +
        file);
    guint arrived = 0;
    receiver.Probe("decoder", "sink", Await, &arrived);
    receiver.SetState(GST_STATE_PLAYING);
    gint port = 0;
    g_object_get(receiver["source"], "port", &port, nullptr);

    // The encoder adds a packet for its own delay.
    Pipeline sender("audiotestsrc is-live=true wave=ticks samplesperbuffer=960 num-buffers=" +
                    std::to_string(kPackets - 1) +
                    " ! audio/x-raw,rate=48000 ! opusenc ! rtpopuspay name=payloader ! udpsink "
                    "host=127.0.0.1 port=" +
                    std::to_string(port));
    guint sent = 0;
    sender.Probe("payloader", "src", Drop, &sent);
    sender.SetState(GST_STATE_PLAYING);
    ASSERT_TRUE(receiver.WaitFor(GST_MESSAGE_APPLICATION)) << arrived << " of " << sent;

    GstQuery *query = gst_query_new_latency();
    GstPad *output = gst_element_get_static_pad(receiver["decoder"], "src");
    EXPECT_TRUE(gst_pad_query(output, query));
    gst_object_unref(output);
    GstClockTime latency = 0;
    gst_query_parse_latency(query, nullptr, &latency, nullptr);
    EXPECT_EQ(latency, 100 * GST_MSECOND);
    gst_query_unref(query);
    gst_element_send_event(receiver.Get(), gst_event_new_eos());
    ASSERT_TRUE(receiver.WaitFor(GST_MESSAGE_EOS));

    GstStructure *stats = nullptr;
    g_object_get(receiver["decoder"], "stats", &stats, nullptr);
    gint64 lost = 0;
    guint64 concealed = 0;
    gst_structure_get_int64(stats, "packetsLost", &lost);
    gst_structure_get_uint64(stats, "concealedSamples", &concealed);
    gst_structure_free(stats);
    EXPECT_EQ(lost, kPackets / 10);
    EXPECT_GE(concealed, kPackets / 10 * 320U);
    gchar *pcm = nullptr;
    gsize bytes = 0;
    ASSERT_TRUE(g_file_get_contents(file.c_str(), &pcm, &bytes, nullptr));
    EXPECT_EQ(bytes, size_t{kPackets} * 320 * sizeof(int16_t));
    g_free(pcm);
    std::remove(file.c_str());
}

}  // namespace
}  // namespace aiplc::gst
