// SPDX-License-Identifier: BSD-2-Clause

#include <cmath>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <utility>

#include "tools/compare/compare_format.h"
#include "tools/compare/compare_method.h"
#include "tools/shell/number_text.h"

namespace aiplc::tools {
namespace {

std::string OptionalText(const std::optional<double> &value) {
    return value ? NumberText(*value) : std::string();
}

std::string Quoted(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

void AddRow(std::string &rows, std::initializer_list<std::string_view> fields) {
    bool first = true;
    for (const std::string_view field : fields) {
        if (!std::exchange(first, false)) rows += ',';
        rows += field;
    }
    rows += '\n';
}

}  // namespace

std::string CsvHeader() {
    return "scope,file,loss,method,kind,measure,first,frames,value,low,high,count,vs_codec,"
           "vs_codec_low,vs_codec_high\n";
}

std::string FigureRows(const std::string &scope, const std::string &file, const std::string &loss,
                       std::span<const CompareFigure> figures) {
    std::string rows;
    const std::string name = Quoted(file);
    for (const CompareFigure &figure : figures) {
        const measure::Estimate &estimate = figure.estimate;
        const auto difference = figure.versusCodec.value_or(measure::Estimate{});
        AddRow(rows, {scope, name, loss, CompareMethods()[figure.method].name, Info(figure.kind).id,
                      Info(figure.measure).id, "", "", NumberText(estimate.value),
                      OptionalText(estimate.low), OptionalText(estimate.high),
                      NumberText(std::round(estimate.count)),
                      figure.versusCodec ? NumberText(difference.value) : std::string(),
                      OptionalText(difference.low), OptionalText(difference.high)});
    }
    return rows;
}

std::string GapRows(const std::string &file, const std::string &loss, const CallScores &scores) {
    std::string rows;
    const std::string name = Quoted(file);
    for (const GapScores &gap : scores.gaps) {
        const std::string first = std::to_string(gap.first);
        const std::string frames = std::to_string(gap.frames);
        const auto add = [&](size_t method, const char *kind, CompareMeasure measure,
                             const measure::Term &term) {
            if (term.count <= 0.0) return;
            AddRow(rows, {"gap", name, loss, CompareMethods()[method].name, kind, Info(measure).id,
                          first, frames, NumberText(term.sum / term.count), "", "",
                          NumberText(term.count), "", "", ""});
        };
        for (size_t method = 0; method < gap.methods.size(); ++method) {
            const GapTerms &terms = gap.methods[method];
            for (size_t i = 0; i < terms.inside.size(); ++i)
                add(method, Info(KindOfGap(gap.frames)).id, kGapMeasures[i], terms.inside[i]);
            for (size_t i = 0; i < terms.after.size(); ++i)
                add(method, Info(CompareKind::after).id, kGapMeasures[i], terms.after[i]);
        }
    }
    return rows;
}

}  // namespace aiplc::tools
