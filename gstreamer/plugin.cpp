// SPDX-License-Identifier: BSD-2-Clause

#include <gst/gst.h>

#include "gstreamer/opus_dec.h"

namespace {

// Without a rank no player chooses the element by itself: its output is mono and 60 ms behind.
gboolean Register(GstPlugin *plugin) {
    return gst_element_register(plugin, "aiplcopusdec", GST_RANK_NONE, aiplc::gst::OpusDecType());
}

}  // namespace

#define PACKAGE "aiplc"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, aiplc,
                  "Opus decoding with neural packet-loss concealment", Register,
                  AIPLC_PLUGIN_VERSION, "BSD", PACKAGE, "Unknown package origin")
