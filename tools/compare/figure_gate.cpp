// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/figure_gate.h"

#include <cmath>

#include "tools/compare/compare_method.h"
#include "tools/shell/failure.h"
#include "tools/shell/number_text.h"

namespace aiplc::tools {
namespace {

std::string Trimmed(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

[[noreturn]] void Fail(const std::string &gate, const std::string &what) {
    throw UsageError("--fail-if '" + gate + "': " + what);
}

template <typename IdOf>
std::string List(size_t count, IdOf idOf) {
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += (i == 0 ? "" : ", ") + std::string(idOf(i));
    return text;
}

template <typename IdOf>
size_t Find(const std::string &name, size_t count, IdOf idOf, const char *what,
            const std::string &gate) {
    for (size_t i = 0; i < count; ++i) {
        if (name == idOf(i)) return i;
    }
    Fail(gate, std::string("no ") + what + " '" + name + "'; there are " + List(count, idOf));
}

const char *KindId(size_t kind) {
    return Info(static_cast<CompareKind>(kind)).id;
}
std::string MeasureId(size_t measure) {
    return Info(static_cast<CompareMeasure>(measure)).id;
}

// Whether such a figure can be at all.
bool Exists(CompareKind kind, CompareMeasure measure) {
    if (kind == CompareKind::call) return true;
    size_t place = 0;
    while (place < kGapMeasures.size() && kGapMeasures[place] != measure)
        ++place;
    return place < (kind == CompareKind::after ? kAfterMeasures : kGapMeasures.size());
}

}  // namespace

FigureGate::FigureGate(const std::string &text) : m_text(Trimmed(text)) {
    const size_t at = m_text.find_first_of("<>");
    if (at == std::string::npos) {
        Fail(m_text, "no >, <, >= or <= in it; write it like 'aiplc.lsd > codec.lsd'");
    }
    const bool orEqual = at + 1 < m_text.size() && m_text[at + 1] == '=';
    m_relation = m_text.substr(at, orEqual ? 2 : 1);
    m_left = ParseOperand(Trimmed(m_text.substr(0, at)), m_text);
    m_right = ParseOperand(Trimmed(m_text.substr(at + m_relation.size())), m_text);
}

FigureGate::Operand FigureGate::ParseOperand(const std::string &text, const std::string &gate) {
    Operand operand;
    operand.text = text;
    if (const std::optional<double> number = ParseNumber(text)) {
        if (!std::isfinite(*number)) Fail(gate, "'" + text + "' is no number to compare with");
        operand.number = number;
        return operand;
    }
    const size_t dot = text.find('.');
    if (dot == std::string::npos) {
        Fail(gate, "'" + text +
                       "' is neither a number nor method.measure nor method.kind.measure, such as "
                       "aiplc.lsd or aiplc.gap2-3.lsd");
    }
    const std::vector<CompareMethod> &methods = CompareMethods();
    operand.method = Find(
        text.substr(0, dot), methods.size(), [&](size_t i) { return methods[i].name; }, "method",
        gate);
    std::string rest = text.substr(dot + 1);
    const size_t secondDot = rest.find('.');
    // Measures may have a dot of their own: share.codec.
    if (secondDot != std::string::npos && rest.compare(0, secondDot, "share") != 0) {
        operand.kind = static_cast<CompareKind>(
            Find(rest.substr(0, secondDot), kCompareKinds, KindId, "kind", gate));
        rest = rest.substr(secondDot + 1);
    }
    operand.measure =
        static_cast<CompareMeasure>(Find(rest, kCompareMeasures, MeasureId, "measure", gate));
    if (!Exists(operand.kind, operand.measure)) {
        Fail(gate,
             rest + " is not measured for " + Info(operand.kind).id + "; for the gaps there are " +
                 List(kGapMeasures.size(), [](size_t i) { return Info(kGapMeasures[i]).id; }) +
                 ", for after lsd and mcd, for call all");
    }
    return operand;
}

std::optional<double> FigureGate::ValueOf(const Operand &operand,
                                          std::span<const CompareFigure> figures) {
    if (operand.number) return operand.number;
    const CompareFigure *figure =
        FindFigure(figures, operand.method, operand.kind, operand.measure);
    // Shares that no method has are left out of the figures.
    if (figure == nullptr && static_cast<size_t>(operand.measure) >= kNamedMeasures) return 0.0;
    return figure != nullptr ? std::optional(figure->estimate.value) : std::nullopt;
}

bool FigureGate::Holds(double left, double right) const {
    if (m_relation == ">") return left > right;
    if (m_relation == "<") return left < right;
    return m_relation == ">=" ? left >= right : left <= right;
}

std::vector<std::string> FigureGate::Failures(
    const std::vector<LossCondition> &losses,
    const std::vector<std::vector<CompareFigure>> &figures) const {
    std::vector<std::string> failures;
    bool judged = false;
    for (size_t loss = 0; loss < losses.size(); ++loss) {
        const std::optional<double> left = ValueOf(m_left, figures[loss]);
        const std::optional<double> right = ValueOf(m_right, figures[loss]);
        if (!left || !right) continue;
        judged = true;
        if (!Holds(*left, *right)) continue;
        const auto side = [](const Operand &operand, double value) {
            return operand.number ? operand.text : operand.text + " = " + NumberText(value, 4);
        };
        failures.push_back("'" + m_text + "' holds at " + losses[loss].name + ": " +
                           side(m_left, *left) + ", " + side(m_right, *right));
    }
    if (!judged) {
        failures.push_back("'" + m_text +
                           "' cannot be judged: no loss left data for both sides; lose more, or "
                           "give longer calls");
    }
    return failures;
}

}  // namespace aiplc::tools
