// SPDX-License-Identifier: BSD-2-Clause

#include "gstreamer/element.h"

#include <aiplc/channel.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "gstreamer/statistics_structure.h"

GST_DEBUG_CATEGORY_STATIC(aiplcopusdec_debug);
#define GST_CAT_DEFAULT aiplcopusdec_debug

namespace aiplc::gst {
namespace {

constexpr uint32_t kPreferredRate = 48000;
// ns, at the preferred rate.
constexpr uint64_t kUsualLatency = AIPLC_LOOK_AHEAD_FRAMES * uint64_t{20'000'000} +
                                   AIPLC_BANK_DELAY * uint64_t{1'000'000'000} / kPreferredRate;

std::optional<uint64_t> Time(GstClockTime time) {
    if (!GST_CLOCK_TIME_IS_VALID(time)) return {};
    return time;
}

// An Ogg stream's first two packets, which demultiplexers hand on (RFC 7845 5).
bool IsOggHeader(std::span<const uint8_t> payload) {
    const std::string_view begin(reinterpret_cast<const char *>(payload.data()),
                                 std::min<size_t>(payload.size(), 8));
    return begin == "OpusHead" || begin == "OpusTags";
}

// The receiver's log lines, into GStreamer's log and, when it fails, into the error message.
struct ReceiverLog {
    GstElement *element;
    std::string error{};

    static void Write(void *userData, int32_t level, const char *text) {
        auto *log = static_cast<ReceiverLog *>(userData);
        if (level == AIPLC_RECEIVER_LOG_ERROR) {
            log->error = text;
        } else if (level == AIPLC_RECEIVER_LOG_WARNING) {
            GST_ELEMENT_WARNING(log->element, LIBRARY, INIT, ("%s", text), (nullptr));
        } else {
            GST_INFO_OBJECT(log->element, "%s", text);
        }
    }
};

}  // namespace

class Element::Lock {
  public:
    explicit Lock(GstElement *element) : m_element(element) { GST_OBJECT_LOCK(m_element); }
    ~Lock() { GST_OBJECT_UNLOCK(m_element); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

  private:
    GstElement *m_element;
};

Element::Element(GstElement *element, GstPad *sink, GstPad *source)
    : m_element(element), m_sink(sink), m_source(source), m_latency(kUsualLatency) {
    static const bool once = [] {
        GST_DEBUG_CATEGORY_INIT(aiplcopusdec_debug, "aiplcopusdec", 0, "Opus with concealment");
        return true;
    }();
    (void)once;
    gst_segment_init(&m_segment, GST_FORMAT_TIME);
}

// ---- States and properties ----------------------------------------------------------------------

void Element::Start() {
    Stop();
    gst_segment_init(&m_segment, GST_FORMAT_TIME);
    m_flow = GST_FLOW_OK;
    m_latency = kUsualLatency;
}

void Element::Stop() {
    std::shared_ptr<StreamDecoder> old;  // ends without the lock
    const Lock lock(m_element);
    old.swap(m_decoder);
}

std::shared_ptr<StreamDecoder> Element::Decoder() const {
    const Lock lock(m_element);
    return m_decoder;
}

Settings Element::CurrentSettings() const {
    const Lock lock(m_element);
    return m_settings;
}

bool Element::Set(guint property, const GValue *value) {
    const Lock lock(m_element);
    return SetSetting(m_settings, property, value);
}

bool Element::Get(guint property, GValue *value) const {
    if (property == kPropertyStats) {
        g_value_take_boxed(value, Statistics());
        return true;
    }
    return GetSetting(CurrentSettings(), property, value);
}

GstStructure *Element::Statistics() const {
    const std::shared_ptr<StreamDecoder> decoder = Decoder();
    return StatisticsStructure(decoder != nullptr ? decoder->Statistics()
                                                  : AiPlcReceiverStatistics{});
}

// ---- Negotiation --------------------------------------------------------------------------------

// Of those that are allowed behind this element; 0 when none is.
uint32_t Element::ChooseRate() const {
    GstCaps *caps = gst_pad_get_allowed_caps(m_source);
    if (caps == nullptr) caps = gst_pad_get_pad_template_caps(m_source);
    gint rate = 0;
    if (!gst_caps_is_empty(caps)) {
        caps = gst_caps_truncate(caps);
        caps = gst_caps_make_writable(caps);
        GstStructure *first = gst_caps_get_structure(caps, 0);
        gst_structure_fixate_field_nearest_int(first, "rate", kPreferredRate);
        gst_structure_get_int(first, "rate", &rate);
    }
    gst_caps_unref(caps);
    return static_cast<uint32_t>(rate);
}

bool Element::Negotiate() {
    const uint32_t rate = ChooseRate();
    if (rate == 0) return false;
    if (m_decoder == nullptr || rate != m_rate) {
        Drain();
        if (!MakeDecoder(rate)) return false;
    }
    GstCaps *caps =
        gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, AIPLC_GST_FORMAT, "layout",
                            G_TYPE_STRING, "interleaved", "rate", G_TYPE_INT,
                            static_cast<gint>(rate), "channels", G_TYPE_INT, 1, nullptr);
    const bool isTaken = gst_pad_set_caps(m_source, caps) != FALSE;
    gst_caps_unref(caps);
    return isTaken;
}

bool Element::MakeDecoder(uint32_t rate) {
    const Settings settings = CurrentSettings();
    ReceiverLog log{m_element};
    AiPlcReceiverOptions options = settings.ReceiverOptions(rate);
    options.log = ReceiverLog::Write;
    options.logUserData = &log;
    AiPlcReceiver *receiver = nullptr;
    const int32_t result = AiPlcReceiverCreate(&receiver, &options);
    if (result == AIPLC_RECEIVER_E_MODEL) {
        GST_ELEMENT_ERROR(m_element, RESOURCE, NOT_FOUND,
                          ("The network's weights cannot be used: %s. Name the file with the "
                           "property model, or set ai=false.",
                           log.error.c_str()),
                          (nullptr));
        return false;
    }
    if (result != AIPLC_RECEIVER_OK) {
        GST_ELEMENT_ERROR(m_element, LIBRARY, INIT,
                          ("The receiver cannot be made: %s. %s", AiPlcReceiverResultText(result),
                           log.error.c_str()),
                          (nullptr));
        return false;
    }
    auto decoder = std::make_shared<StreamDecoder>(
        receiver, rate, [this](const Sound &sound) { return Emit(sound); });
    {
        const Lock lock(m_element);
        m_decoder.swap(decoder);
    }
    m_rate = rate;
    AnnounceLatency();
    return true;
}

// ---- Data ---------------------------------------------------------------------------------------

GstFlowReturn Element::Chain(GstBuffer *buffer) {
    GstFlowReturn result = GST_FLOW_OK;
    if (gst_pad_check_reconfigure(m_source) != FALSE && !Negotiate()) {
        gst_pad_mark_reconfigure(m_source);
        result = GST_PAD_IS_FLUSHING(m_source) ? GST_FLOW_FLUSHING : GST_FLOW_NOT_NEGOTIATED;
    } else if (m_decoder == nullptr) {
        result = GST_FLOW_NOT_NEGOTIATED;
    } else {
        result = Decode(buffer);
    }
    gst_buffer_unref(buffer);
    return result;
}

GstFlowReturn Element::Decode(GstBuffer *buffer) {
    GstMapInfo map;
    if (gst_buffer_map(buffer, &map, GST_MAP_READ) == FALSE) {
        GST_ELEMENT_ERROR(m_element, RESOURCE, READ, ("A buffer's memory cannot be read."),
                          (nullptr));
        return GST_FLOW_ERROR;
    }
    const Packet packet{{map.data, map.size},
                        Time(GST_BUFFER_PTS(buffer)),
                        Time(GST_BUFFER_DURATION(buffer)),
                        GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT) != FALSE};
    m_flow = GST_FLOW_OK;
    int32_t result = AIPLC_RECEIVER_OK;
    if (map.size == 0) {
        const bool isPause = GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_GAP) != FALSE;
        result = m_decoder->Skip(packet.time, packet.duration, !isPause);
    } else if (!IsOggHeader(packet.payload)) {
        result = m_decoder->Push(packet);
    }
    gst_buffer_unmap(buffer, &map);
    AnnounceLatency();
    return Finish(result);
}

// Of the receiver, or of what was pushed meanwhile.
GstFlowReturn Element::Finish(int32_t result) {
    if (result == AIPLC_RECEIVER_OK) return m_flow;
    GST_ELEMENT_ERROR(m_element, LIBRARY, FAILED,
                      ("The receiver failed: %s.", AiPlcReceiverResultText(result)), (nullptr));
    return GST_FLOW_ERROR;
}

// Pushes the part within the segment.
bool Element::Emit(const Sound &sound) {
    guint64 begin = sound.time;
    guint64 end = sound.time + sound.duration;
    if (gst_segment_clip(&m_segment, GST_FORMAT_TIME, begin, end, &begin, &end) == FALSE)
        return true;
    const auto sample = [this, &sound](guint64 time) {
        return gst_util_uint64_scale_round(time - sound.time, m_rate, GST_SECOND);
    };
    const std::span<const int16_t> samples =
        sound.samples.subspan(sample(begin), sample(end) - sample(begin));
    if (samples.empty()) return true;
    GstBuffer *buffer = gst_buffer_new_allocate(nullptr, samples.size_bytes(), nullptr);
    gst_buffer_fill(buffer, 0, samples.data(), samples.size_bytes());
    GST_BUFFER_PTS(buffer) = begin;
    GST_BUFFER_DURATION(buffer) = end - begin;
    if (sound.isDiscontinuous) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    m_flow = gst_pad_push(m_source, buffer);
    return m_flow == GST_FLOW_OK;
}

void Element::Drain() {
    if (m_decoder == nullptr) return;
    m_flow = GST_FLOW_OK;
    (void)Finish(m_decoder->Drain());
}

// Tells the pipeline when it has changed, with the rate or with the length of the packets.
void Element::AnnounceLatency() {
    const uint64_t latency = m_decoder->Latency();
    if (m_latency.exchange(latency) != latency)
        gst_element_post_message(m_element, gst_message_new_latency(GST_OBJECT_CAST(m_element)));
}

// ---- Events and queries -------------------------------------------------------------------------

gboolean Element::SinkEvent(GstEvent *event) {
    GstObject *parent = GST_OBJECT_CAST(m_element);
    switch (GST_EVENT_TYPE(event)) {
        case GST_EVENT_CAPS:
            return TakeCaps(event);
        case GST_EVENT_SEGMENT:
            return TakeSegment(event);
        case GST_EVENT_GAP:
            return TakeGap(event);
        case GST_EVENT_STREAM_START:
            Drain();
            break;
        case GST_EVENT_EOS:
            Drain();
            gst_element_post_message(m_element, gst_message_new_element(parent, Statistics()));
            break;
        case GST_EVENT_FLUSH_STOP:
            gst_segment_init(&m_segment, GST_FORMAT_TIME);
            m_flow = GST_FLOW_OK;
            if (m_decoder != nullptr) (void)Finish(m_decoder->Reset());
            break;
        default:
            break;
    }
    return gst_pad_event_default(m_sink, parent, event);
}

// The output's format does not depend on the stream's, and is announced in place of it.
gboolean Element::TakeCaps(GstEvent *event) {
    gst_event_unref(event);
    Drain();
    (void)gst_pad_check_reconfigure(m_source);
    return Negotiate() ? TRUE : FALSE;
}

gboolean Element::TakeSegment(GstEvent *event) {
    Drain();
    gst_event_copy_segment(event, &m_segment);
    if (m_segment.format != GST_FORMAT_TIME) {
        // Bytes of a stream say nothing about its output: times begin at 0.
        gst_segment_init(&m_segment, GST_FORMAT_TIME);
        GstEvent *timed = gst_event_new_segment(&m_segment);
        gst_event_set_seqnum(timed, gst_event_get_seqnum(event));
        gst_event_unref(event);
        event = timed;
    }
    return gst_pad_event_default(m_sink, GST_OBJECT_CAST(m_element), event);
}

// A loss within a call becomes sound. Otherwise those behind shall know of the gap.
gboolean Element::TakeGap(GstEvent *event) {
    if (m_decoder == nullptr || !m_decoder->HasBegun())
        return gst_pad_event_default(m_sink, GST_OBJECT_CAST(m_element), event);
    GstClockTime time = GST_CLOCK_TIME_NONE;
    GstClockTime duration = GST_CLOCK_TIME_NONE;
    gst_event_parse_gap(event, &time, &duration);
    gst_event_unref(event);
    m_flow = GST_FLOW_OK;
    (void)Finish(m_decoder->Skip(Time(time), Time(duration), true));
    return TRUE;
}

gboolean Element::SourceQuery(GstQuery *query) {
    if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY)
        return gst_pad_query_default(m_source, GST_OBJECT_CAST(m_element), query);
    if (gst_pad_peer_query(m_sink, query) == FALSE) return FALSE;
    gboolean isLive = FALSE;
    GstClockTime least = 0;
    GstClockTime most = 0;
    gst_query_parse_latency(query, &isLive, &least, &most);
    const uint64_t own = m_latency;
    if (GST_CLOCK_TIME_IS_VALID(most)) most += own;
    gst_query_set_latency(query, isLive, least + own, most);
    return TRUE;
}

}  // namespace aiplc::gst
