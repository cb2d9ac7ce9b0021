// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/compare_output.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/compare/compare_format.h"
#include "tools/compare/report_page.h"

namespace aiplc::tools {
namespace {

using Json = nlohmann::ordered_json;

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

// An entry of the report together with its sound, which may be empty.
std::string WithSound(const std::string &entry, std::string_view sound) {
    if (sound.empty()) return entry;
    Json json = Json::parse(entry);
    json.update(Json::parse(sound));
    return JsonText(json);
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
    const Json head = ReportHead(options, setups, losses, unit);
    if (m_json) m_jsonReport.emplace([this](const std::string &text) { m_json->Write(text); });
    if (m_page)
        m_pageReport.emplace([this](const std::string &text) { m_page->Write(WithoutLess(text)); });
    for (auto *report : {&m_jsonReport, &m_pageReport}) {
        if (!*report) continue;
        (*report)->AddMembers(head);
        (*report)->BeginList("files");
    }
    if (m_csv) m_csv->Write(CsvHeader());
}

void CompareOutput::AddFile(const std::string &name, const LossCondition &loss,
                            CompareResult &result) {
    if (m_jsonReport) m_jsonReport->AddItem(result.entry);
    if (m_page) {
        m_pageFiles.push_back({name, loss.name, std::move(result.entry)});
        m_sound.Add(std::move(result.sound));
    }
    if (m_csv) m_csv->Write(result.rows);
}

void CompareOutput::AddPageFiles() {
    using Kept = PageSound::Kept;
    const std::vector<Kept> kept = m_sound.Choose();
    for (size_t i = 0; i < m_pageFiles.size(); ++i) {
        const PageFile &file = m_pageFiles[i];
        std::string_view sound;
        if (kept[i] == Kept::whole) sound = m_sound.Sound(i).whole;
        if (kept[i] == Kept::excerpts) sound = m_sound.Sound(i).excerpts;
        m_pageReport->AddItem(WithSound(file.entry, sound));
        if (kept[i] != Kept::whole && m_audioLimit > 0)
            m_cutCalls.push_back({file.name, file.loss, kept[i] == Kept::excerpts});
    }
}

double CompareOutput::AudioNeededMb() const {
    return std::ceil(static_cast<double>(m_sound.Needed()) / 1e5) / 10.0;
}

void CompareOutput::AddFigures(const LossCondition &loss, std::span<const CompareFigure> figures) {
    for (const Json &figure : FigureEntries(loss.id, figures))
        m_figures.push_back(JsonText(figure));
    if (m_csv) m_csv->Write(FigureRows("all", "", loss.id, figures));
}

void CompareOutput::Commit(const std::string &tables) {
    if (m_page) AddPageFiles();
    for (auto *report : {&m_jsonReport, &m_pageReport}) {
        if (!*report) continue;
        (*report)->EndList();
        (*report)->BeginList("figures");
        for (const std::string &figure : m_figures)
            (*report)->AddItem(figure);
        (*report)->EndList();
    }
    if (m_jsonReport) m_jsonReport->End();
    if (m_page) {
        if (!m_cutCalls.empty() && AudioNeededMb() <= kMaxAudioLimitMb)
            m_pageReport->AddMembers({{"audioNeededMb", AudioNeededMb()}});
        m_pageReport->End();
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
