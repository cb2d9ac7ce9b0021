// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_OUTPUT_H
#define AIPLC_TOOLS_COMPARE_OUTPUT_H

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "compare_figures.h"
#include "compare_job.h"
#include "compare_options.h"
#include "loss_condition.h"
#include "output_file.h"

namespace aiplc::tools {

// The files that --json, --csv and --html ask for, written while the calls are being played; they
// appear together when all is done.
class CompareOutput {
  public:
    // Throws Failure when one of them cannot be written.
    CompareOutput(const CompareOptions &options, std::span<const MethodSetup> setups,
                  const std::vector<LossCondition> &losses, ResampledUnit unit);

    // Bytes that the page may still take for sound; 0 without a page.
    [[nodiscard]] int64_t AudioLeft() const { return m_audioLeft; }
    // Files with the losses at which their sound did not fit.
    [[nodiscard]] const std::map<std::string, std::vector<std::string>> &WithoutAudio() const {
        return m_withoutAudio;
    }

    // Files in the order of the report; then the figures of their loss.
    void AddFile(const std::string &name, const LossCondition &loss, const CompareResult &result);
    void AddFigures(const LossCondition &loss, std::span<const CompareFigure> figures);

    // Makes all files appear, and prints the tables unless a report takes standard output. Throws
    // Failure.
    void Commit(const std::string &tables);

  private:
    void WriteJson(const std::string &text);
    void WritePage(const std::string &json);

    const CompareOptions &m_options;
    std::unique_ptr<OutputFile> m_json;
    std::unique_ptr<OutputFile> m_csv;
    std::unique_ptr<OutputFile> m_page;
    std::string m_pageTail;  // behind the report
    int64_t m_audioLeft = 0;
    std::map<std::string, std::vector<std::string>> m_withoutAudio;
    std::string m_figures;
    bool m_anyFile = false;
};

}  // namespace aiplc::tools

#endif
