// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/compare_figures.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "tools/compare/compare_method.h"

namespace aiplc::tools {
namespace {

constexpr size_t kCallsToResample = 10;
constexpr uint64_t kSeed = 1;
constexpr double kRounding = 1e-4;  // of differences, in any unit

using Row = std::vector<measure::Term>;

// A mean that is estimated for every method.
struct Column {
    CompareKind kind = CompareKind::call;
    CompareMeasure measure = CompareMeasure::lsd;
};

void AddRow(Row &sum, const Row &row) {
    for (size_t i = 0; i < sum.size(); ++i)
        sum[i] += row[i];
}

// Units with one row each: columns method by method.
class Table {
  public:
    Table(std::vector<Column> columns, size_t methods)
        : m_columns(std::move(columns)),
          m_methods(methods),
          m_bootstrap(m_columns.size() * methods) {}

    [[nodiscard]] Row EmptyRow() const { return Row(m_columns.size() * m_methods); }
    void AddUnit(const Row &row) { m_bootstrap.AddUnit(row); }

    void Append(std::vector<CompareFigure> &figures) {
        m_bootstrap.Draw(kSeed);
        const size_t codec = MethodIndex(CompareMethod::Id::codec);
        for (size_t column = 0; column < m_columns.size(); ++column) {
            for (size_t method = 0; method < m_methods; ++method) {
                const size_t own = method * m_columns.size() + column;
                const std::optional<measure::Estimate> estimate = m_bootstrap.Mean(own);
                if (!estimate) continue;
                CompareFigure figure{method, m_columns[column].kind, m_columns[column].measure,
                                     *estimate, std::nullopt};
                if (method != codec) {
                    figure.versusCodec =
                        m_bootstrap.Difference(own, codec * m_columns.size() + column);
                }
                figures.push_back(figure);
            }
        }
    }

  private:
    std::vector<Column> m_columns;
    size_t m_methods;
    measure::Bootstrap m_bootstrap;
};

template <typename Units, typename RowOf>
void AddUnits(Table &table, const Units &units, ResampledUnit unit, RowOf rowOf) {
    Row sum = table.EmptyRow();
    bool any = false;
    for (const auto &one : units) {
        const std::optional<Row> row = rowOf(one);
        if (!row) continue;
        any = true;
        if (unit == ResampledUnit::calls) {
            AddRow(sum, *row);
        } else {
            table.AddUnit(*row);
        }
    }
    if (any && unit == ResampledUnit::calls) table.AddUnit(sum);
}

Row InsideRow(const GapScores &gap) {
    Row row;
    for (const GapTerms &terms : gap.methods)
        row.insert(row.end(), terms.inside.begin(), terms.inside.end());
    return row;
}

Row WholeRow(const GapScores &gap) {
    Row row;
    for (const GapTerms &terms : gap.methods) {
        row.insert(row.end(), terms.after.begin(), terms.after.end());
        row.insert(row.end(), terms.inside.begin(), terms.inside.end());
    }
    return row;
}

Row StretchRow(const StretchScores &stretch) {
    Row row;
    for (const StretchTerms &terms : stretch.methods) {
        row.push_back(terms.intelligibility);
        row.push_back(terms.interruptions);
        row.insert(row.end(), terms.shares.begin(), terms.shares.end());
    }
    return row;
}

std::vector<Column> GapColumns(CompareKind kind) {
    std::vector<Column> columns(kGapMeasures.size());
    for (size_t i = 0; i < columns.size(); ++i)
        columns[i] = {kind, kGapMeasures[i]};
    return columns;
}

void AppendGapKinds(std::vector<CompareFigure> &figures, std::span<const CallScores> calls,
                    ResampledUnit unit, size_t methods) {
    for (const CompareKind kind :
         {CompareKind::gap1, CompareKind::gap2to3, CompareKind::gap4to6, CompareKind::gap7up}) {
        Table table(GapColumns(kind), methods);
        for (const CallScores &call : calls) {
            AddUnits(table, call.gaps, unit, [kind](const GapScores &gap) {
                return KindOfGap(gap.frames) == kind ? std::optional(InsideRow(gap)) : std::nullopt;
            });
        }
        table.Append(figures);
    }
}

void AppendWholeGaps(std::vector<CompareFigure> &figures, std::span<const CallScores> calls,
                     ResampledUnit unit, size_t methods) {
    std::vector<Column> columns = GapColumns(CompareKind::call);
    for (size_t i = kAfterMeasures; i > 0; --i)
        columns.insert(columns.begin(), Column{CompareKind::after, kGapMeasures[i - 1]});
    Table table(columns, methods);
    for (const CallScores &call : calls) {
        AddUnits(table, call.gaps, unit,
                 [](const GapScores &gap) { return std::optional(WholeRow(gap)); });
    }
    table.Append(figures);
}

// Sources that no method has are left out.
void DropEmptyShares(std::vector<CompareFigure> &figures) {
    std::array<bool, kCompareMeasures> used{};
    for (const CompareFigure &figure : figures) {
        bool &one = used[static_cast<size_t>(figure.measure)];
        one = one || figure.estimate.value != 0.0;
    }
    std::erase_if(figures, [&](const CompareFigure &figure) {
        const auto measure = static_cast<size_t>(figure.measure);
        return measure >= kNamedMeasures && !used[measure];
    });
}

void AppendStretches(std::vector<CompareFigure> &figures, std::span<const CallScores> calls,
                     ResampledUnit unit, size_t methods) {
    std::vector<Column> columns = {{CompareKind::call, CompareMeasure::estoi},
                                   {CompareKind::call, CompareMeasure::interruptions}};
    for (size_t i = 0; i < AIPLC_FRAME_SOURCES; ++i)
        columns.push_back({CompareKind::call, ShareOf(i)});
    Table table(columns, methods);
    for (const CallScores &call : calls) {
        AddUnits(table, call.stretches, unit,
                 [](const StretchScores &stretch) { return std::optional(StretchRow(stretch)); });
    }
    table.Append(figures);
    for (CompareFigure &figure : figures) {
        if (figure.measure == CompareMeasure::estoi ||
            figure.measure == CompareMeasure::interruptions)
            figure.estimate.count = static_cast<double>(calls.size());
    }
    DropEmptyShares(figures);
}

}  // namespace

int CompareFigure::Verdict() const {
    if (!versusCodec || !versusCodec->low || !versusCodec->high) return 0;
    const std::string &better = Info(measure).better;
    if (better == "none" || std::abs(versusCodec->value) < kRounding) return 0;
    const int sign = better == "lower" ? 1 : -1;
    if (*versusCodec->high < 0.0) return sign;
    return *versusCodec->low > 0.0 ? -sign : 0;
}

ResampledUnit UnitFor(size_t calls) {
    return calls >= kCallsToResample ? ResampledUnit::calls : ResampledUnit::gaps;
}

std::vector<CompareFigure> MakeFigures(std::span<const CallScores> calls, ResampledUnit unit) {
    const size_t methods = CompareMethods().size();
    std::vector<CompareFigure> figures;
    AppendGapKinds(figures, calls, unit, methods);
    AppendWholeGaps(figures, calls, unit, methods);
    AppendStretches(figures, calls, unit, methods);
    return figures;
}

const CompareFigure *FindFigure(std::span<const CompareFigure> figures, size_t method,
                                CompareKind kind, CompareMeasure measure) {
    for (const CompareFigure &figure : figures) {
        if (figure.method == method && figure.kind == kind && figure.measure == measure)
            return &figure;
    }
    return nullptr;
}

}  // namespace aiplc::tools
