// SPDX-License-Identifier: BSD-2-Clause

#include "src/pipeline/output_area.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace aiplc::pipeline {
namespace {

constexpr char kUnit[] = "aiplc_process";
constexpr uint32_t kFrameMs = 20;

// Bytes from a position to the end of the area; negative when the position lies outside.
std::ptrdiff_t BytesLeft(const AiPlcHostStream &stream, const uint8_t *position) {
    const auto at = reinterpret_cast<uintptr_t>(position);
    const auto end = reinterpret_cast<uintptr_t>(stream.outEnd);
    if (position == nullptr || at < reinterpret_cast<uintptr_t>(stream.outBase) || at > end) {
        return -1;
    }
    return static_cast<std::ptrdiff_t>(end - at);
}

}  // namespace

void CompactOutput(AiPlcHostStream &stream, uint32_t sampleRate) {
    if (stream.outWrite == nullptr ||
        BytesLeft(stream, stream.outWrite) >= AIPLC_OUTPUT_RESERVE_BYTES) {
        return;
    }

    const auto keep = static_cast<uint16_t>(stream.outPending + kFrameMs * (sampleRate / 1000));
    const std::ptrdiff_t keepBytes = std::ptrdiff_t{keep} * std::ptrdiff_t{sizeof(int16_t)};
    const std::ptrdiff_t readable = BytesLeft(stream, stream.outRead);
    const std::ptrdiff_t area = BytesLeft(stream, stream.outBase);
    if (readable < 0 || keepBytes > area) {
        AudAiplcLog(kUnit, __LINE__, "output area too small to compact: %ld bytes, keeping %ld",
                    static_cast<long>(area), static_cast<long>(keepBytes));
        return;
    }
    std::memmove(stream.outBase, stream.outRead,
                 static_cast<size_t>(std::min(keepBytes, readable)));
    stream.outRead = stream.outBase;
    stream.outWrite = stream.outBase + keepBytes;
}

uint16_t AppendOutput(AiPlcHostStream &stream, const AiPlcPkt &node) {
    const std::ptrdiff_t bytes = std::ptrdiff_t{node.sampleCount} * std::ptrdiff_t{sizeof(int16_t)};
    if (bytes > BytesLeft(stream, stream.outWrite)) {
        AudAiplcLog(kUnit, __LINE__, "frame dropped: no room for %u samples at outWrite",
                    unsigned{node.sampleCount});
        return 0;
    }
    std::memcpy(stream.outWrite, node.samples, static_cast<size_t>(bytes));
    stream.outWrite += bytes;
    stream.outPending = static_cast<uint16_t>(stream.outPending + node.sampleCount);
    return node.sampleCount;
}

}  // namespace aiplc::pipeline
