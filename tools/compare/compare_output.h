// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_OUTPUT_H
#define AIPLC_TOOLS_COMPARE_OUTPUT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/compare/compare_figures.h"
#include "tools/compare/compare_job.h"
#include "tools/compare/compare_options.h"
#include "tools/compare/json_stream.h"
#include "tools/compare/page_sound.h"
#include "tools/loss/loss_condition.h"
#include "tools/shell/output_file.h"

namespace aiplc::tools {

// The files that --json, --csv and --html ask for, written while the calls are being played; they
// appear together when all is done.
class CompareOutput {
  public:
    // Throws Failure when one of them cannot be written.
    CompareOutput(const CompareOptions &options, std::span<const MethodSetup> setups,
                  const std::vector<LossCondition> &losses, ResampledUnit unit);

    // Bytes that the page may take for sound; 0 without a page.
    [[nodiscard]] int64_t AudioLimit() const { return m_audioLimit; }

    // Files in the order of the report; then the figures of their loss.
    void AddFile(const std::string &name, const LossCondition &loss, CompareResult &result);
    void AddFigures(const LossCondition &loss, std::span<const CompareFigure> figures);

    // Makes all files appear, and prints the tables unless a report takes standard output. Throws
    // Failure.
    void Commit(const std::string &tables);

    // Once committed: calls of which the page holds excerpts only, or no sound at all although some
    // was wanted.
    struct CutCall {
        std::string name;
        std::string loss;
        bool excerpts = false;
    };
    [[nodiscard]] const std::vector<CutCall> &CutCalls() const { return m_cutCalls; }
    // The --audio-limit that holds all sound, MB in steps of 0.1.
    [[nodiscard]] double AudioNeededMb() const;

  private:
    void AddPageFiles();

    // An entry of the page that waits for the verdict on its sound.
    struct PageFile {
        std::string name;
        std::string loss;
        std::string entry;  // a JSON object
    };

    const CompareOptions &m_options;
    std::unique_ptr<OutputFile> m_json;
    std::unique_ptr<OutputFile> m_csv;
    std::unique_ptr<OutputFile> m_page;
    std::string m_pageTail;                  // behind the report
    std::optional<JsonStream> m_jsonReport;  // into m_json
    std::optional<JsonStream> m_pageReport;  // into m_page
    int64_t m_audioLimit = 0;
    PageSound m_sound;
    std::vector<PageFile> m_pageFiles;
    std::vector<CutCall> m_cutCalls;
    std::vector<std::string> m_figures;  // JSON objects
};

}  // namespace aiplc::tools

#endif
