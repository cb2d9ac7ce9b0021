// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_FIGURES_H
#define AIPLC_TOOLS_COMPARE_FIGURES_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "measure/bootstrap.h"
#include "tools/compare/call_scores.h"
#include "tools/compare/compare_measure.h"

namespace aiplc::tools {

// One number of a report with its 95 % interval.
struct CompareFigure {
    size_t method = 0;
    CompareKind kind = CompareKind::call;
    CompareMeasure measure = CompareMeasure::lsd;
    measure::Estimate estimate;
    // Of this method's value less the codec's, from the same draws; not for the codec itself.
    std::optional<measure::Estimate> versusCodec;

    // 1: the method is better than the codec, -1: worse. 0 where the interval of the difference
    // includes zero, where the difference is below 1e-4 in its unit, which rounding causes too, or
    // where neither direction of the measure is better.
    [[nodiscard]] int Verdict() const;
};

// The unit that the bootstrap draws: whole calls, or the gaps of all calls (for measures of a whole
// call its stretches of two seconds). Fewer than ten calls say too little about how calls differ.
enum class ResampledUnit { gaps, calls };
ResampledUnit UnitFor(size_t calls);

// The figures of calls under one loss, by kind, measure and method; what has no data is left out.
std::vector<CompareFigure> MakeFigures(std::span<const CallScores> calls, ResampledUnit unit);

// The figure, or null when there is none.
const CompareFigure *FindFigure(std::span<const CompareFigure> figures, size_t method,
                                CompareKind kind, CompareMeasure measure);

}  // namespace aiplc::tools

#endif
