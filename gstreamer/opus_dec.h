// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_GSTREAMER_OPUS_DEC_H
#define AIPLC_GSTREAMER_OPUS_DEC_H

#include <gst/gst.h>

namespace aiplc::gst {

// The element aiplcopusdec: Opus packets in, mono PCM with losses concealed out.
GType OpusDecType();

}  // namespace aiplc::gst

#endif
