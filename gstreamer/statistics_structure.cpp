// SPDX-License-Identifier: BSD-2-Clause

#include "gstreamer/statistics_structure.h"

#include <string>

namespace aiplc::gst {

GstStructure *StatisticsStructure(const AiPlcReceiverStatistics &s) {
    GstStructure *all = gst_structure_new_empty("application/x-aiplcopusdec-stats");
    const auto count = [all](const char *name, uint64_t value) {
        gst_structure_set(all, name, G_TYPE_UINT64, static_cast<guint64>(value), nullptr);
    };
    const auto number = [all](const char *name, double value) {
        gst_structure_set(all, name, G_TYPE_DOUBLE, value, nullptr);
    };
    count("packetsReceived", s.packetsReceived);
    gst_structure_set(all, "packetsLost", G_TYPE_INT64, static_cast<gint64>(s.packetsLost),
                      nullptr);
    count("packetsDiscarded", s.packetsDiscarded);
    count("packetsDuplicated", s.packetsDuplicated);
    count("packetsUndecodable", s.packetsUndecodable);
    count("fecPacketsReceived", s.fecPacketsReceived);
    count("fecPacketsDiscarded", s.fecPacketsDiscarded);
    count("bytesReceived", s.bytesReceived);
    count("totalSamplesReceived", s.totalSamplesReceived);
    count("concealedSamples", s.concealedSamples);
    count("silentConcealedSamples", s.silentConcealedSamples);
    count("concealmentEvents", s.concealmentEvents);
    number("totalSamplesDuration", s.totalSamplesDuration);
    number("totalAudioEnergy", s.totalAudioEnergy);
    count("requests", s.requests);
    count("requestsFailed", s.requestsFailed);
    count("secondLooks", s.secondLooks);
    count("secondLooksFailed", s.secondLooksFailed);
    number("requestTimeP50Ms", s.requestTimeP50Ms);
    number("requestTimeP99Ms", s.requestTimeP99Ms);
    number("requestTimeMaxMs", s.requestTimeMaxMs);
    for (int32_t source = 0; source < static_cast<int32_t>(AIPLC_FRAME_SOURCES); ++source) {
        const std::string name = std::string("frames-") + AiPlcFrameSourceName(source);
        count(name.c_str(), s.framesBySource[source]);
    }
    return all;
}

}  // namespace aiplc::gst
