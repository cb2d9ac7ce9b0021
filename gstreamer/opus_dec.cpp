// SPDX-License-Identifier: BSD-2-Clause
//
// The element as GStreamer's object system sees it; gstreamer/element.h does the work.

#include "gstreamer/opus_dec.h"

#include "gstreamer/element.h"
#include "gstreamer/settings.h"

namespace aiplc::gst {
namespace {

struct OpusDec {
    GstElement parent;
    Element *element;  // from InitInstance to Finalize
};

struct OpusDecClass {
    GstElementClass parent;
};

GstStaticPadTemplate sinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("audio/x-opus, channel-mapping-family = (int) 0"));
GstStaticPadTemplate sourceTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("audio/x-raw, format = (string) " AIPLC_GST_FORMAT
                    ", layout = (string) interleaved, rate = (int) { 48000, 16000 }, "
                    "channels = (int) 1"));

Element &Of(gpointer object) {
    return *static_cast<OpusDec *>(object)->element;
}

GObjectClass *ParentClass(gpointer object) {
    const gpointer type = g_type_class_peek(OpusDecType());
    (void)object;
    return static_cast<GObjectClass *>(g_type_class_peek_parent(type));
}

GstFlowReturn Chain(GstPad * /*pad*/, GstObject *parent, GstBuffer *buffer) {
    return Of(parent).Chain(buffer);
}

gboolean SinkEvent(GstPad * /*pad*/, GstObject *parent, GstEvent *event) {
    return Of(parent).SinkEvent(event);
}

gboolean SourceQuery(GstPad * /*pad*/, GstObject *parent, GstQuery *query) {
    return Of(parent).SourceQuery(query);
}

GstStateChangeReturn ChangeState(GstElement *object, GstStateChange change) {
    if (change == GST_STATE_CHANGE_READY_TO_PAUSED) Of(object).Start();
    auto *parent = reinterpret_cast<GstElementClass *>(ParentClass(object));
    const GstStateChangeReturn result = parent->change_state(object, change);
    // Statistics can be read until then.
    if (change == GST_STATE_CHANGE_READY_TO_NULL) Of(object).Stop();
    return result;
}

void SetProperty(GObject *object, guint property, const GValue *value, GParamSpec *pspec) {
    if (!Of(object).Set(property, value))
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, pspec);
}

void GetProperty(GObject *object, guint property, GValue *value, GParamSpec *pspec) {
    if (!Of(object).Get(property, value))
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, pspec);
}

void Finalize(GObject *object) {
    delete &Of(object);
    ParentClass(object)->finalize(object);
}

void InitClass(gpointer type, gpointer /*data*/) {
    auto *object = static_cast<GObjectClass *>(type);
    object->set_property = SetProperty;
    object->get_property = GetProperty;
    object->finalize = Finalize;
    InstallProperties(object);
    auto *element = static_cast<GstElementClass *>(type);
    element->change_state = ChangeState;
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    gst_element_class_add_static_pad_template(element, &sourceTemplate);
    gst_element_class_set_static_metadata(
        element, "Opus audio decoder with packet-loss concealment", "Codec/Decoder/Audio",
        "Decodes Opus speech to mono and conceals lost packets with a neural network, 60 ms behind "
        "the newest packet",
        "The aiplc authors");
}

void InitInstance(GTypeInstance *instance, gpointer /*type*/) {
    auto *element = reinterpret_cast<GstElement *>(instance);
    GstPad *sink = gst_pad_new_from_static_template(&sinkTemplate, "sink");
    gst_pad_set_chain_function(sink, Chain);
    gst_pad_set_event_function(sink, SinkEvent);
    gst_element_add_pad(element, sink);
    GstPad *source = gst_pad_new_from_static_template(&sourceTemplate, "src");
    gst_pad_set_query_function(source, SourceQuery);
    gst_element_add_pad(element, source);
    reinterpret_cast<OpusDec *>(instance)->element = new Element(element, sink, source);
}

}  // namespace

GType OpusDecType() {
    static const GType type =
        g_type_register_static_simple(GST_TYPE_ELEMENT, "AiplcOpusDec", sizeof(OpusDecClass),
                                      InitClass, sizeof(OpusDec), InitInstance, GTypeFlags{});
    return type;
}

}  // namespace aiplc::gst
