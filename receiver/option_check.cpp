// SPDX-License-Identifier: BSD-2-Clause

#include "receiver/option_check.h"

#include <utility>

namespace aiplc::receiver {
namespace {

struct Range {
    const char *name;
    int32_t value;
    int32_t least;
    int32_t most;
};

}  // namespace

std::string OptionFault(const AiPlcReceiverOptions &options) {
    if (options.sampleRate != 16000 && options.sampleRate != 48000) {
        return "sampleRate is " + std::to_string(options.sampleRate) + ", must be 16000 or 48000";
    }
    const Range ranges[] = {
        {"predictor", options.predictor, AIPLC_PREDICTOR_NONE, AIPLC_PREDICTOR_IN_PROCESS},
        {"useSecondLook", options.useSecondLook, 0, 1},
        {"useFec", options.useFec, 0, 1},
        {"useLatePackets", options.useLatePackets, 0, 1},
        {"expectPauses", options.expectPauses, 0, 1},
        {"codecConceals", options.codecConceals, 0, 1},
        {"decoderComplexity", options.decoderComplexity, 0, 10},
        {"payloadType", options.payloadType, -1, 127},
        {"redPayloadType", options.redPayloadType, -1, 127},
        {"jitterBuffer", options.jitterBuffer, AIPLC_JITTER_NONE, AIPLC_JITTER_ADAPTIVE},
        {"minDelayMs", options.minDelayMs, 0, 2000},
        {"maxDelayMs", options.maxDelayMs, options.minDelayMs, 2000},
    };
    for (const Range &range : ranges) {
        if (range.value >= range.least && range.value <= range.most) continue;
        return std::string(range.name) + " is " + std::to_string(range.value) + ", must be " +
               std::to_string(range.least) + " to " + std::to_string(range.most);
    }
    for (const auto &[name, type] : {std::pair{"payloadType", options.payloadType},
                                     std::pair{"redPayloadType", options.redPayloadType}}) {
        if (type >= 64 && type <= 95)
            return std::string(name) + " is " + std::to_string(type) +
                   ", must be -1 to 63 or 96 to 127: the others are RTCP's (RFC 5761)";
    }
    if (options.redPayloadType >= 0 && options.redPayloadType == options.payloadType)
        return "redPayloadType and payloadType are both " + std::to_string(options.payloadType) +
               ", must differ";
    return {};
}

}  // namespace aiplc::receiver
