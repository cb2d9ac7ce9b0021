// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_FIGURE_GATE_H
#define AIPLC_TOOLS_FIGURE_GATE_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/compare/compare_figures.h"
#include "tools/loss/loss_condition.h"

namespace aiplc::tools {

// A condition under which a comparison fails: "aiplc.lsd > codec.lsd", "aiplc.gap2-3.mcd > 6.5".
// Either side is a number, method.measure (of the whole call) or method.kind.measure; between them
// stands >, <, >= or <=.
class FigureGate {
  public:
    // Throws UsageError, which lists the names that there are.
    explicit FigureGate(const std::string &text);

    // Messages that name both values, for each loss under which the condition holds; also when
    // there is no loss under which both sides have a value. figures: by loss.
    [[nodiscard]] std::vector<std::string> Failures(
        const std::vector<LossCondition> &losses,
        const std::vector<std::vector<CompareFigure>> &figures) const;

  private:
    struct Operand {
        std::string text;
        std::optional<double> number;  // else the figure that the rest names
        size_t method = 0;
        CompareKind kind = CompareKind::call;
        CompareMeasure measure = CompareMeasure::lsd;
    };

    static Operand ParseOperand(const std::string &text, const std::string &gate);
    static std::optional<double> ValueOf(const Operand &operand,
                                         std::span<const CompareFigure> figures);
    [[nodiscard]] bool Holds(double left, double right) const;

    std::string m_text;
    Operand m_left;
    Operand m_right;
    std::string m_relation;
};

}  // namespace aiplc::tools

#endif
