// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_STATISTICS_H
#define AIPLC_HOST_STATISTICS_H

#include <array>
#include <cstdint>
#include <vector>

#include "host/output_frame.h"

namespace aiplc::host {

// Counters of one receiver since its construction. The first two groups have the names and meanings
// of RTCInboundRtpStreamStats (W3C "Identifiers for WebRTC's Statistics API"); samples are counted
// at the receiver's rate, over output frames from frame 0 on.
struct Statistics {
    uint64_t packetsReceived = 0;      // duplicates included
    int64_t packetsLost = 0;           // RFC 3550 6.4.1: expected minus received
    uint64_t packetsDiscarded = 0;     // too late, too early or out of place; never played
    uint64_t packetsDuplicated = 0;    // not counted as discarded
    uint64_t fecPacketsReceived = 0;   // packets that carry in-band redundancy
    uint64_t fecPacketsDiscarded = 0;  // of those, redundancy that nobody needed
    uint64_t bytesReceived = 0;        // payloads

    uint64_t totalSamplesReceived = 0;  // concealed ones included
    uint64_t concealedSamples = 0;
    uint64_t silentConcealedSamples = 0;  // of those, played as silence
    uint64_t concealmentEvents = 0;       // runs of concealed samples
    double totalSamplesDuration = 0;      // seconds
    double totalAudioEnergy = 0;          // sum of (rms / full scale)^2 x seconds

    uint64_t packetsUndecodable = 0;  // no valid Opus packet; treated as lost
    uint64_t timelineRestarts = 0;    // jumps of the sender's clock that were followed

    std::array<uint64_t, kFrameSources> framesBySource{};  // index: FrameSource; all output frames
    std::array<uint64_t, 9>
        decisionsByMode{};          // index: AiPlcInferMode; 1-5 asked, 7-8 to the codec
    uint64_t decisionsHeldOff = 0;  // losses left to the codec because of an earlier failure
    uint64_t secondLooks = 0;       // requests for single losses, which no mode 1-5 counts
    uint64_t secondLooksFailed = 0;
    uint64_t requestsFailed = 0;        // of all requests
    std::vector<float> requestTimesMs;  // one per request, in order
    float initTimeMs = 0;               // channel and worker start; 0 when the worker failed

    uint64_t Frames(FrameSource source) const;
    uint64_t Requests() const { return requestTimesMs.size(); }

    // The smallest request time that at least the given share (0..1) of requests did not exceed
    // (nearest rank), in ms; 0 without requests. 1 gives the maximum.
    float RequestTimeMs(double share) const;
};

}  // namespace aiplc::host

#endif
