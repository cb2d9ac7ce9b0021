// SPDX-License-Identifier: BSD-2-Clause

#include <array>
#include <cmath>
#include <cstdio>

#include "compare_format.h"
#include "compare_method.h"

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

}  // namespace

std::string CsvHeader() {
    return "scope,file,loss,method,kind,measure,first,frames,value,low,high,count,vs_codec,"
           "vs_codec_low,vs_codec_high\n";
}

std::string FigureRows(const std::string &scope, const std::string &file, const std::string &loss,
                       std::span<const CompareFigure> figures) {
    std::string rows;
    const std::string place = scope + "," + Quoted(file) + "," + loss + ",";
    for (const CompareFigure &figure : figures) {
        rows += place + CompareMethods()[figure.method].name + "," + Info(figure.kind).id + "," +
                Info(figure.measure).id + ",,," + Number(figure.estimate.value) + "," +
                Number(figure.estimate.low) + "," + Number(figure.estimate.high) + "," +
                Number(std::round(figure.estimate.count)) + ",";
        if (figure.versusCodec) {
            rows += Number(figure.versusCodec->value) + "," + Number(figure.versusCodec->low) +
                    "," + Number(figure.versusCodec->high) + "\n";
        } else {
            rows += ",,\n";
        }
    }
    return rows;
}

std::string GapRows(const std::string &file, const std::string &loss, const CallScores &scores) {
    std::string rows;
    const std::string place = "gap," + Quoted(file) + "," + loss + ",";
    for (const GapScores &gap : scores.gaps) {
        const std::string where = std::to_string(gap.first) + "," + std::to_string(gap.frames);
        const auto add = [&](size_t method, const char *kind, CompareMeasure measure,
                             const measure::Term &term) {
            if (term.count <= 0.0) return;
            rows += place + CompareMethods()[method].name + "," + kind + "," + Info(measure).id +
                    "," + where + "," + Number(term.sum / term.count) + ",,," + Number(term.count) +
                    ",,,\n";
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
