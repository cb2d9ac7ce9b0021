// SPDX-License-Identifier: BSD-2-Clause

#include <array>
#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "tools/compare/compare_format.h"
#include "tools/compare/compare_method.h"

namespace aiplc::tools {
namespace {

std::string Number(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.6g", value);
    return text.data();
}

std::string Number(const std::optional<double> &value) {
    return value ? Number(*value) : std::string();
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
                      Info(figure.measure).id, "", "", Number(estimate.value), Number(estimate.low),
                      Number(estimate.high), Number(std::round(estimate.count)),
                      figure.versusCodec ? Number(difference.value) : std::string(),
                      Number(difference.low), Number(difference.high)});
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
            AddRow(rows,
                   {"gap", name, loss, CompareMethods()[method].name, kind, Info(measure).id, first,
                    frames, Number(term.sum / term.count), "", "", Number(term.count), "", "", ""});
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
