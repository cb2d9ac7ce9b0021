// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/compare_output.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/compare/compare_format.h"
#include "tools/compare/report_page.h"

namespace aiplc::tools {
namespace {

constexpr std::string_view kMarker = "__AIPLC_REPORT_JSON__";

std::unique_ptr<OutputFile> Open(const std::string &path) {
    if (path.empty()) return nullptr;
    return std::make_unique<OutputFile>(path, OutputFile::kNoInput);
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

// MB with one decimal.
std::string Megabytes(double number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", number);
    return text.data();
}

}  // namespace

CompareOutput::CompareOutput(const CompareOptions &options, std::span<const MethodSetup> setups,
                             const std::vector<LossCondition> &losses, ResampledUnit unit)
    : m_options(options),
      m_audioLimit(options.htmlPath.empty() ? 0 : static_cast<int64_t>(options.audioLimitMb * 1e6)),
      m_sound(m_audioLimit) {
    m_json = Open(options.jsonPath);
    m_csv = Open(options.csvPath);
    m_page = Open(options.htmlPath);
    if (m_page) {
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
                            CompareResult &result) {
    const std::string entry = (m_anyFile ? ",\n" : "\n") + result.entry;
    m_anyFile = true;
    WriteJson(entry + "}");
    if (m_page) {
        m_pageFiles.push_back({name, loss.name, entry});
        m_sound.Add(std::move(result.sound));
    }
    if (m_csv) m_csv->Write(result.rows);
}

void CompareOutput::WritePageFiles() {
    using Kept = PageSound::Kept;
    const std::vector<Kept> kept = m_sound.Choose();
    for (size_t i = 0; i < m_pageFiles.size(); ++i) {
        const PageFile &file = m_pageFiles[i];
        WritePage(file.entry);
        // Numbers, names of methods and base64 only, so that it needs no escapes.
        if (kept[i] == Kept::whole) m_page->Write(m_sound.Sound(i).whole);
        if (kept[i] == Kept::excerpts) m_page->Write(m_sound.Sound(i).excerpts);
        if (kept[i] != Kept::whole && m_audioLimit > 0)
            m_cutCalls.push_back({file.name, file.loss, kept[i] == Kept::excerpts});
        WritePage("}");
    }
}

double CompareOutput::AudioNeededMb() const {
    return std::ceil(static_cast<double>(m_sound.Needed()) / 1e5) / 10.0;
}

void CompareOutput::AddFigures(const LossCondition &loss, std::span<const CompareFigure> figures) {
    const std::string text = FiguresJson(loss.id, figures);
    m_figures += (m_figures.empty() || text.empty() ? "\n" : ",\n") + text;
    if (m_csv) m_csv->Write(FigureRows("all", "", loss.id, figures));
}

void CompareOutput::Commit(const std::string &tables) {
    const std::string figures = "\n],\n\"figures\":[" + m_figures + "\n]";
    WriteJson(figures + "}\n");
    if (m_page) {
        WritePageFiles();
        WritePage(figures);
        if (!m_cutCalls.empty() && AudioNeededMb() <= kMaxAudioLimitMb)
            WritePage(",\n\"audioNeededMb\":" + Megabytes(AudioNeededMb()));
        WritePage("}\n");
        m_page->Write(m_pageTail);
    }
    const bool standardOutputTaken =
        m_options.jsonPath == "-" || m_options.csvPath == "-" || m_options.htmlPath == "-";
    for (const auto *file : {&m_json, &m_csv, &m_page}) {
        if (*file) (*file)->Commit();
    }
    if (standardOutputTaken) return;
    OutputFile table("-", OutputFile::kNoInput);
    table.Write(tables);
    table.Commit();
}

}  // namespace aiplc::tools
