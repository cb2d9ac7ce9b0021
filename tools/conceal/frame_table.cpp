// SPDX-License-Identifier: BSD-2-Clause

#include "tools/conceal/frame_table.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <span>

namespace aiplc::tools {
namespace {

constexpr size_t kBlockBytes = 65536;

const char *TypeName(AiPlcPktType type) {
    switch (type) {
        case OPUS_DECODED:
            return "OPUS_DECODED";
        case AIPLC_EXTRAPOLATE:
            return "AIPLC_EXTRAPOLATE";
        case AIPLC_INTERPOLATE:
            return "AIPLC_INTERPOLATE";
        case PKT_LOST:
            return "PKT_LOST";
        case PKT_MUTE:
            return "PKT_MUTE";
        case OPUSPLC_PREDICT:
            return "OPUSPLC_PREDICT";
    }
    return "?";
}

// Rms level in dB of full scale, 32768; minus infinity for silence.
double LevelDb(std::span<const int16_t> samples) {
    double sum = 0.0;
    for (const int16_t sample : samples)
        sum += static_cast<double>(sample) * sample;
    const double power = sum / static_cast<double>(samples.size());
    return 10.0 * std::log10(power / (32768.0 * 32768.0));
}

}  // namespace

FrameTable::FrameTable(const std::string &target, int input)
    : m_file(target, input),
      m_pending(
          "frame,time_s,source,packet_type,bandwidth,infer_mode,requested,request_ms,failed,second_"
          "look,"
          "fused_into_predict,fused_from_predict,opus_plc,concealed_samples,level_dbfs\n") {}

void FrameTable::Add(int64_t callFrame, double seconds, const PlayedFrame &frame) {
    std::array<char, 256> row{};
    const std::string_view source = AiPlcFrameSourceName(frame.source);
    std::snprintf(
        row.data(), row.size(), "%lld,%.4f,%.*s,%s,%u,%d,%d,%.3f,%d,%d,%d,%d,%d,%u,%.2f\n",
        static_cast<long long>(callFrame), seconds, static_cast<int>(source.size()), source.data(),
        TypeName(static_cast<AiPlcPktType>(frame.packetType)), frame.bandwidth, frame.inferMode,
        int{frame.requested}, static_cast<double>(frame.requestTimeMs), int{frame.requestFailed},
        int{frame.secondLook}, int{frame.fusedIntoPredict}, int{frame.fusedFromPredict},
        int{frame.opusPlcApplied}, frame.concealedSamples, LevelDb(frame.samples));
    m_pending += row.data();
    if (m_pending.size() >= kBlockBytes) {
        m_file.Write(m_pending);
        m_pending.clear();
    }
}

void FrameTable::Commit() {
    m_file.Write(m_pending);
    m_pending.clear();
    m_file.Commit();
}

}  // namespace aiplc::tools
