// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_MEASURE_H
#define AIPLC_TOOLS_COMPARE_MEASURE_H

#include <aiplc/receiver.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace aiplc::tools {

// The frames that a figure is taken over. Gaps are runs of frames that have no received audio in
// them.
enum class CompareKind { gap1, gap2to3, gap4to6, gap7up, after, call };
inline constexpr size_t kCompareKinds = 6;

struct KindInfo {
    const char *id;
    const char *name;
};
const KindInfo &Info(CompareKind kind);
// The kind of a gap of so many frames, 1 or more.
CompareKind KindOfGap(int64_t frames);

// The measures, which docs/measures.md defines. Behind the named ones: the share of frames of
// each source, in the order of AiPlcFrameSource.
enum class CompareMeasure : size_t { lsd, mcd, estoi, joinLevel, joinPitch, click, interruptions };
inline constexpr size_t kNamedMeasures = 7;
inline constexpr size_t kCompareMeasures = kNamedMeasures + AIPLC_FRAME_SOURCES;
CompareMeasure ShareOf(AiPlcFrameSource source);
inline CompareMeasure ShareOf(size_t source) {
    return ShareOf(static_cast<AiPlcFrameSource>(source));
}

struct MeasureInfo {
    std::string id;
    std::string name;
    std::string unit;
    std::string better;  // "lower", "higher", or "none" where neither is
    int decimals;        // worth showing
};
const MeasureInfo &Info(CompareMeasure measure);

// Measured inside each gap; the first kAfterMeasures of them also in the frames after it.
inline constexpr std::array kGapMeasures = {CompareMeasure::lsd, CompareMeasure::mcd,
                                            CompareMeasure::joinLevel, CompareMeasure::joinPitch,
                                            CompareMeasure::click};
inline constexpr size_t kAfterMeasures = 2;

}  // namespace aiplc::tools

#endif
