// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/compare.h"

#include <aiplc/aiplc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "tools/compare/compare_format.h"
#include "tools/compare/compare_job.h"
#include "tools/compare/compare_method.h"
#include "tools/compare/compare_output.h"
#include "tools/compare/figure_gate.h"
#include "tools/compare/job_pool.h"
#include "tools/input/call_loader.h"
#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/log_lines.h"
#include "tools/shell/output_targets.h"

namespace aiplc::tools {
namespace {

// File names without their folders, unless two of them are then the same.
std::vector<std::string> ShortNames(const std::vector<std::string> &paths) {
    std::vector<std::string> names(paths.size());
    std::ranges::transform(paths, names.begin(), [](const std::string &path) {
        return std::filesystem::path(path).filename().string();
    });
    const std::set<std::string> distinct(names.begin(), names.end());
    return distinct.size() == paths.size() ? names : paths;
}

// Checks an input before anything is played; returns its size in bytes.
int64_t CheckInput(const std::string &path, const CompareOptions &options, bool ownLosses) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
        throw Failure(path, "is no plain file, and a call is read several times; give a file");
    const InputFile input = InputFile::Open(path);
    CallOptions load;
    load.encoding = options.encoding;
    load.stream = options.stream;
    load.jitterBufferMs = options.jitterBufferMs;
    const InputKind kind = CheckedKind(input, load);
    const bool mayHaveLosses = kind == InputKind::capture || kind == InputKind::bitStream;
    if (ownLosses && !mayHaveLosses) {
        throw UsageError(path + ": " + InputKindName(kind) +
                         " has no losses of its own; give --loss PERCENT or --loss-trace FILE");
    }
    return static_cast<int64_t>(input.Size());
}

void CheckOptions(const CompareOptions &options) {
    const std::vector<OutputTarget> targets = {
        {"--json", options.jsonPath}, {"--csv", options.csvPath}, {"--html", options.htmlPath}};
    CheckDistinct(targets);
    CheckNoInput(targets, options.inputs);
    std::set<std::string> seen;
    for (const std::string &input : options.inputs) {
        if (input == "-") {
            throw UsageError(
                "-: standard input can be read only once; save it to a file and give that");
        }
        if (!seen.insert(input).second)
            throw UsageError(input + ": is given twice; give every file once");
    }
}

// One run of the command.
class Comparison {
  public:
    explicit Comparison(const CompareOptions &options)
        : m_options(options),
          m_setups(MethodSetups(options.receiving)),
          m_losses(LossConditions(options.losses)),
          m_unit(UnitFor(options.inputs.size())),
          m_names(ShortNames(options.inputs)) {
        for (const std::string &gate : options.failGates)
            m_gates.emplace_back(gate);
        const bool ownLosses = m_losses.front().id == "own";
        for (const std::string &input : options.inputs)
            m_sizes.push_back(CheckInput(input, options, ownLosses));
    }

    std::vector<std::string> Run() {
        if (!m_options.quiet) PrintDecoderNote("compare", m_options.receiving);
        CompareOutput output(m_options, m_setups, m_losses, m_unit);
        Play(output);
        std::vector<std::string> failures;
        for (const FigureGate &gate : m_gates) {
            for (std::string &failure : gate.Failures(m_losses, m_figures))
                failures.push_back(std::move(failure));
        }
        ThrowIfInterrupted();
        output.Commit(CompareTables(m_options, m_losses, m_figures, m_unit));
        if (!m_options.quiet) Warn(output);
        return failures;
    }

  private:
    // All calls under the first loss, then under the next one, so that the scores of one loss at a
    // time are kept.
    [[nodiscard]] CompareJob JobOf(size_t number) const {
        const size_t files = m_options.inputs.size();
        const size_t file = number % files;
        return {m_options.inputs[file], m_names[file], m_setups, &m_losses[number / files],
                m_options.losses.seed.value_or(1) + file};
    }

    void Play(CompareOutput &output) {
        std::vector<int64_t> costs;
        for (size_t i = 0; i < m_losses.size(); ++i)
            costs.insert(costs.end(), m_sizes.begin(), m_sizes.end());
        int64_t total = 0;
        for (const int64_t cost : costs)
            total += cost;
        const long processors = sysconf(_SC_NPROCESSORS_ONLN);
        JobPool pool(static_cast<size_t>(
            m_options.jobs.value_or(static_cast<int>(std::max(processors, 1L)))));
        const SoundLimits limits = {output.AudioLimit(),
                                    output.AudioLimit() / static_cast<int64_t>(costs.size())};
        Progress progress(total, !m_options.quiet);
        pool.Run(
            costs,
            [&](size_t number, int descriptor, const std::function<void(double)> &report) {
                WriteResult(RunCompareJob(JobOf(number), m_options, limits, report), descriptor);
            },
            [&](size_t number, int descriptor) { Take(number, ReadResult(descriptor), output); },
            progress);
    }

    void Take(size_t number, CompareResult result, CompareOutput &output) {
        const size_t files = m_options.inputs.size();
        const LossCondition &loss = m_losses[number / files];
        if (number < files) m_notes += result.notes;
        output.AddFile(m_names[number % files], loss, result);  // takes its sound
        m_requests += result.requests;
        m_requestsFailed += result.requestsFailed;
        m_scores.push_back(std::move(result.scores));
        if (m_scores.size() < files) return;
        m_figures.push_back(MakeFigures(m_scores, m_unit));
        output.AddFigures(loss, m_figures.back());
        m_scores.clear();
    }

    void Warn(const CompareOutput &output) const {
        std::istringstream notes(m_notes);
        for (std::string line; std::getline(notes, line);) {
            const bool isTable = line.starts_with(' ');
            std::fprintf(stderr, "%s%s\n", isTable ? "" : "aiplc: compare: ", line.c_str());
        }
        if (m_requestsFailed > 0) {
            std::fprintf(stderr,
                         "aiplc: compare: warning: %llu of the worker's %llu answers came too "
                         "late, and the codec concealed instead: this machine is busy; fewer "
                         "--jobs may help\n",
                         static_cast<unsigned long long>(m_requestsFailed),
                         static_cast<unsigned long long>(m_requests));
        }
        if (output.CutCalls().empty()) return;
        WarnOfCuts(output, true, "excerpts of the sound, around the worst gaps and typical ones,");
        WarnOfCuts(output, false, "no sound");
        const double needed = output.AudioNeededMb();
        std::fprintf(stderr,
                     needed <= kMaxAudioLimitMb
                         ? "  --audio-limit %.1f holds all of it\n"
                         : "  all of it takes %.1f MB; compare fewer or shorter calls\n",
                     needed);
    }

    // Names the calls with excerpts only, or those without sound.
    void WarnOfCuts(const CompareOutput &output, bool excerpts, const char *kept) const {
        std::map<std::string, std::vector<std::string>> losses;  // by call
        for (const CompareOutput::CutCall &call : output.CutCalls()) {
            if (call.excerpts == excerpts) losses[call.name].push_back(call.loss);
        }
        if (losses.empty()) return;
        std::fprintf(stderr,
                     "aiplc: compare: warning: --audio-limit %g leaves room in the page for %s "
                     "of:\n",
                     m_options.audioLimitMb, kept);
        for (const auto &[name, places] : losses) {
            std::string list;
            for (size_t i = 0; i < places.size() && places.size() < m_losses.size(); ++i)
                list += (i == 0 ? " at " : ", ") + places[i];
            std::fprintf(stderr, "  %s%s\n", name.c_str(), list.c_str());
        }
    }

    const CompareOptions &m_options;
    std::vector<MethodSetup> m_setups;
    std::vector<LossCondition> m_losses;
    ResampledUnit m_unit;
    std::vector<std::string> m_names;
    std::vector<int64_t> m_sizes;
    std::vector<FigureGate> m_gates;
    std::vector<CallScores> m_scores;                   // of the current loss
    std::vector<std::vector<CompareFigure>> m_figures;  // by loss
    std::string m_notes;                                // about the inputs
    uint64_t m_requests = 0;
    uint64_t m_requestsFailed = 0;
};

}  // namespace

std::vector<std::string> Compare(const CompareOptions &options) {
    CheckOptions(options);
    if (options.verbose) AiplcRegLog(PrintLog);
    return Comparison(options).Run();
}

}  // namespace aiplc::tools
