// SPDX-License-Identifier: BSD-2-Clause

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "tools/compare/compare_format.h"
#include "tools/compare/compare_method.h"

namespace aiplc::tools {
namespace {

constexpr size_t kCellWidth = 17;

std::string Padded(std::string text, size_t width) {
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text;
}

// "8.02 +-0.31 *"; the interval's half width, where it is worth a digit.
std::string Cell(const CompareFigure *figure) {
    if (figure == nullptr) return "-";
    const int decimals = Info(figure->measure).decimals;
    const measure::Estimate &estimate = figure->estimate;
    const double half = estimate.low ? (*estimate.high - *estimate.low) / 2.0 : 0.0;
    // The two ends of the scale do not compete.
    const bool end = figure->method == MethodIndex(CompareMethod::Id::ideal) ||
                     figure->method == MethodIndex(CompareMethod::Id::silence);
    const int verdict = end ? 0 : figure->Verdict();
    const char *mark = verdict > 0 ? " *" : verdict < 0 ? " !" : "";
    std::array<char, 64> text{};
    if (half * std::pow(10.0, decimals) >= 0.5) {
        std::snprintf(text.data(), text.size(), "%.*f +-%.*f%s", decimals, estimate.value, decimals,
                      half, mark);
    } else {
        std::snprintf(text.data(), text.size(), "%.*f%s", decimals, estimate.value, mark);
    }
    return text.data();
}

class TableWriter {
  public:
    TableWriter(const CompareOptions &options, const std::vector<LossCondition> &losses,
                const std::vector<std::vector<CompareFigure>> &figures)
        : m_losses(losses),
          m_figures(figures),
          m_showKinds(options.showKinds || losses.size() == 1) {
        for (const LossCondition &loss : losses)
            m_labelWidth = std::max(m_labelWidth, loss.name.size() + 2);
    }

    void AddMeasure(CompareMeasure measure) {
        const MeasureInfo &info = Info(measure);
        std::string rows;
        for (size_t loss = 0; loss < m_losses.size(); ++loss) {
            rows += Row(m_losses[loss].name, loss, CompareKind::call, measure);
            for (size_t kind = 0; m_showKinds && kind < kCompareKinds - 1; ++kind) {
                const auto one = static_cast<CompareKind>(kind);
                rows += Row(std::string("  ") + Info(one).name, loss, one, measure);
            }
        }
        if (rows.empty()) return;
        m_text += "\n" + info.name + " [" + info.id + "]" +
                  (info.unit.empty() ? "" : ", " + info.unit) + ", " + info.better +
                  " is better\n" + Padded("", m_labelWidth);
        std::string heads;
        for (const CompareMethod &method : CompareMethods())
            heads += Padded(method.name, kCellWidth);
        AddLine(heads);
        m_text += rows;
    }

    void AddShares() {
        const size_t method = MethodIndex(CompareMethod::Id::aiplc);
        std::string rows;
        for (size_t loss = 0; loss < m_losses.size(); ++loss) {
            std::string cells;
            for (size_t source = 0; source < AIPLC_FRAME_SOURCES; ++source) {
                const CompareFigure *figure =
                    FindFigure(m_figures[loss], method, CompareKind::call, ShareOf(source));
                if (figure == nullptr || figure->estimate.value == 0.0) continue;
                std::array<char, 64> text{};
                const std::string_view name =
                    AiPlcFrameSourceName(static_cast<AiPlcFrameSource>(source));
                std::snprintf(text.data(), text.size(), "%s%.*s %.1f", cells.empty() ? "" : ", ",
                              static_cast<int>(name.size()), name.data(), figure->estimate.value);
                cells += text.data();
            }
            rows += Padded(m_losses[loss].name, m_labelWidth) + cells + "\n";
        }
        m_text += "\nFrames by source, %, aiplc\n" + rows;
    }

    [[nodiscard]] const std::string &Text() const { return m_text; }

  private:
    void AddLine(std::string line) {
        line.erase(line.find_last_not_of(' ') + 1);
        m_text += line + "\n";
    }

    std::string Row(const std::string &label, size_t loss, CompareKind kind,
                    CompareMeasure measure) const {
        std::string row = Padded(label, m_labelWidth);
        bool any = false;
        for (size_t method = 0; method < CompareMethods().size(); ++method) {
            const CompareFigure *figure = FindFigure(m_figures[loss], method, kind, measure);
            any = any || figure != nullptr;
            row += Padded(Cell(figure), kCellWidth);
        }
        if (!any) return {};
        row.erase(row.find_last_not_of(' ') + 1);
        return row + "\n";
    }

    const std::vector<LossCondition> &m_losses;
    const std::vector<std::vector<CompareFigure>> &m_figures;
    bool m_showKinds;
    size_t m_labelWidth = 26;  // of the kinds' names
    std::string m_text;
};

}  // namespace

std::string CompareTables(const CompareOptions &options, const std::vector<LossCondition> &losses,
                          const std::vector<std::vector<CompareFigure>> &figures,
                          ResampledUnit unit) {
    TableWriter writer(options, losses, figures);
    for (size_t measure = 0; measure < kNamedMeasures; ++measure)
        writer.AddMeasure(static_cast<CompareMeasure>(measure));
    writer.AddShares();
    const std::string what = unit == ResampledUnit::calls
                                 ? "calls"
                                 : "gaps (for measures of a whole call: stretches of 2 s)";
    return std::to_string(options.inputs.size()) +
           (options.inputs.size() == 1 ? " file" : " files") + " at " +
           std::to_string(options.sampleRate / 1000) + " kHz. +- is half of the 95 % interval, " +
           "bootstrapped over " + what +
           ".\n* better, ! worse than codec: the interval of the difference leaves out 0.\n" +
           writer.Text();
}

}  // namespace aiplc::tools
