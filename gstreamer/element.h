// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_GSTREAMER_ELEMENT_H
#define AIPLC_GSTREAMER_ELEMENT_H

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "gstreamer/settings.h"
#include "gstreamer/stream_decoder.h"

// Signed 16 bit in the machine's own order of bytes.
#if G_BYTE_ORDER == G_LITTLE_ENDIAN
#define AIPLC_GST_FORMAT "S16LE"
#else
#define AIPLC_GST_FORMAT "S16BE"
#endif

namespace aiplc::gst {

// The streaming side of one aiplcopusdec. Functions run on the streaming thread unless they say
// otherwise.
class Element {
  public:
    // element outlives this and has the two pads.
    Element(GstElement *element, GstPad *sink, GstPad *source);

    GstFlowReturn Chain(GstBuffer *buffer);
    gboolean SinkEvent(GstEvent *event);
    // On any thread.
    gboolean SourceQuery(GstQuery *query);

    // Between the states READY and PAUSED, without data flow.
    void Start();
    void Stop();

    // On any thread.
    bool Set(guint property, const GValue *value);
    bool Get(guint property, GValue *value) const;

  private:
    // The element's object lock, which protects settings and the pointer to the decoder.
    class Lock;

    std::shared_ptr<StreamDecoder> Decoder() const;
    Settings CurrentSettings() const;
    GstStructure *Statistics() const;

    gboolean TakeCaps(GstEvent *event);
    gboolean TakeSegment(GstEvent *event);
    gboolean TakeGap(GstEvent *event);
    bool Negotiate();
    uint32_t ChooseRate() const;
    bool MakeDecoder(uint32_t rate);
    bool Emit(const Sound &sound);
    GstFlowReturn Decode(GstBuffer *buffer);
    GstFlowReturn Finish(int32_t result);
    void Drain();
    void AnnounceLatency();

    GstElement *m_element;
    GstPad *m_sink;
    GstPad *m_source;
    Settings m_settings;                       // under the lock
    std::shared_ptr<StreamDecoder> m_decoder;  // under the lock, but for reading while streaming
    uint32_t m_rate = 0;                       // of the decoder
    GstSegment m_segment;
    GstFlowReturn m_flow = GST_FLOW_OK;  // of the last buffer pushed
    std::atomic<uint64_t> m_latency;     // ns
};

}  // namespace aiplc::gst

#endif
