// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_COMPARE_FORMAT_H
#define AIPLC_TOOLS_COMPARE_FORMAT_H

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <vector>

#include "tools/compare/call_scores.h"
#include "tools/compare/compare_figures.h"
#include "tools/compare/compare_method.h"
#include "tools/compare/compare_options.h"
#include "tools/loss/loss_condition.h"
#include "tools/play/call_recording.h"

namespace aiplc::tools {

// Pieces of the JSON report, which docs/measures.md describes.

// The members that are known before the first call is played: all but "files" and "figures".
nlohmann::ordered_json ReportHead(const CompareOptions &options,
                                  std::span<const MethodSetup> setups,
                                  const std::vector<LossCondition> &losses, ResampledUnit unit);
// One item of "files", without its sound.
nlohmann::ordered_json FileEntry(const std::string &name, const std::string &loss,
                                 std::span<const CallRecording> recordings,
                                 const CallScores &scores, std::span<const CompareFigure> figures);
// The items of "figures" for one loss over all files.
std::vector<nlohmann::ordered_json> FigureEntries(const std::string &loss,
                                                  std::span<const CompareFigure> figures);

// The rows of the CSV file, each with its line feed; RFC 4180 with line feeds.
std::string CsvHeader();
// scope: "all" or "file"; file: empty for all.
std::string FigureRows(const std::string &scope, const std::string &file, const std::string &loss,
                       std::span<const CompareFigure> figures);
std::string GapRows(const std::string &file, const std::string &loss, const CallScores &scores);

// The readable tables.
std::string CompareTables(const CompareOptions &options, const std::vector<LossCondition> &losses,
                          const std::vector<std::vector<CompareFigure>> &figures,
                          ResampledUnit unit);

}  // namespace aiplc::tools

#endif
