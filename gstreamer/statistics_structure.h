// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_GSTREAMER_STATISTICS_STRUCTURE_H
#define AIPLC_GSTREAMER_STATISTICS_STRUCTURE_H

#include <aiplc/receiver.h>
#include <gst/gst.h>

namespace aiplc::gst {

// The counters by their names in AiPlcReceiverStatistics: counts as guint64 (packetsLost as
// gint64), times and energies as gdouble, 20 ms frames by source as frames-decoded and so on, with
// the names of AiPlcFrameSourceName. The caller frees it.
GstStructure *StatisticsStructure(const AiPlcReceiverStatistics &statistics);

}  // namespace aiplc::gst

#endif
