// SPDX-License-Identifier: BSD-2-Clause

#include "compare_output.h"

#include <stdexcept>
#include <string_view>

#include "compare_format.h"
#include "report_page.h"

namespace aiplc::tools {
namespace {

constexpr std::string_view kMarker = "__AIPLC_REPORT_JSON__";

std::unique_ptr<OutputFile> Open(const std::string &path) {
    if (path.empty()) return nullptr;
    return std::make_unique<OutputFile>(path, nullptr);
}

// JSON that may stand within a script element: no < ends it early.
std::string WithoutLess(const std::string &json) {
    std::string text;
    text.reserve(json.size());
    for (const char c : json) {
        if (c == '<') {
            text += "\\u003c";
        } else {
            text += c;
        }
    }
    return text;
}

}  // namespace

CompareOutput::CompareOutput(const CompareOptions &options, std::span<const MethodSetup> setups,
                             const std::vector<LossCondition> &losses, ResampledUnit unit)
    : m_options(options) {
    m_json = Open(options.jsonPath);
    m_csv = Open(options.csvPath);
    m_page = Open(options.htmlPath);
    if (m_page) {
        m_audioLeft = static_cast<int64_t>(options.audioLimitMb * 1e6);
        const std::string_view page = ReportPage();
        const size_t at = page.find(kMarker);
        if (at == std::string_view::npos) throw std::logic_error("the page has no place for data");
        m_page->Write(std::string(page.substr(0, at)));
        m_pageTail = std::string(page.substr(at + kMarker.size()));
    }
    const std::string head = ReportHead(options, setups, losses, unit) + ",\n\"files\":[";
    WriteJson(head);
    WritePage(head);
    if (m_csv) m_csv->Write(CsvHeader());
}

void CompareOutput::WriteJson(const std::string &text) {
    if (m_json) m_json->Write(text);
}

void CompareOutput::WritePage(const std::string &json) {
    if (m_page) m_page->Write(WithoutLess(json));
}

void CompareOutput::AddFile(const std::string &name, const LossCondition &loss,
                            const CompareResult &result) {
    const std::string entry = (m_anyFile ? ",\n" : "\n") + result.entry;
    m_anyFile = true;
    WriteJson(entry + "}");
    WritePage(entry);
    const auto size = static_cast<int64_t>(result.audio.size());
    if (size > 0 && size <= m_audioLeft) {
        WritePage(result.audio);
        m_audioLeft -= size;
    } else if (m_page) {
        m_withoutAudio[name].push_back(loss.name);
    }
    WritePage("}");
    if (m_csv) m_csv->Write(result.rows);
}

void CompareOutput::AddFigures(const LossCondition &loss, std::span<const CompareFigure> figures) {
    const std::string text = FiguresJson(loss.id, figures);
    m_figures += (m_figures.empty() || text.empty() ? "\n" : ",\n") + text;
    if (m_csv) m_csv->Write(FigureRows("all", "", loss.id, figures));
}

void CompareOutput::Commit(const std::string &tables) {
    const std::string tail = "\n],\n\"figures\":[" + m_figures + "\n]}\n";
    WriteJson(tail);
    WritePage(tail);
    if (m_page) m_page->Write(m_pageTail);
    const bool standardOutputTaken =
        m_options.jsonPath == "-" || m_options.csvPath == "-" || m_options.htmlPath == "-";
    for (const auto *file : {&m_json, &m_csv, &m_page}) {
        if (*file) (*file)->Commit();
    }
    if (standardOutputTaken) return;
    OutputFile table("-", nullptr);
    table.Write(tables);
    table.Commit();
}

}  // namespace aiplc::tools
