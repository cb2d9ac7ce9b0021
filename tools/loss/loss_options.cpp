// SPDX-License-Identifier: BSD-2-Clause

#include "tools/loss/loss_options.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "tools/shell/failure.h"
#include "tools/shell/number_check.h"

namespace aiplc::tools {
namespace {

// Where the options of one command write to, and what differs in their help.
template <typename Number, typename Path>
struct LossTargets {
    Number &percent;
    Number &meanBurst;
    std::optional<uint64_t> &seed;
    Path &tracePath;
    std::string percentHelp;
    std::string percentRight;  // completes "give ..."
    std::string burstHelp;
    std::string seedHelp;
    std::string traceHelp;
};

// A list takes "5,10,20" and repeated options, but not the arguments behind it.
template <typename Value>
CLI::Option *Add(CLI::App &app, const std::string &name, Value &value, const std::string &help) {
    return app.add_option(name, value, help);
}
template <typename Value>
CLI::Option *Add(CLI::App &app, const std::string &name, std::vector<Value> &values,
                 const std::string &help) {
    return app.add_option(name, values, help)->allow_extra_args(false);
}

template <typename Number, typename Path>
void AddTo(CLI::App &app, const LossTargets<Number, Path> &targets) {
    app.option_defaults()->group("Loss");
    Add(app, "--loss", targets.percent, targets.percentHelp)
        ->check(IsNumber(targets.percentRight))
        ->type_name("PERCENT");
    Add(app, "--burst", targets.meanBurst, targets.burstHelp)
        ->check(CLI::Range(1.0, 1e6).description(""))
        ->type_name("MEAN");
    app.add_option("--seed", targets.seed, targets.seedHelp)
        ->check(IsWholeNumber("0 or more"))
        ->type_name("N");
    Add(app, "--loss-trace", targets.tracePath, targets.traceHelp)->type_name("FILE");
    Add(app, "--trace", targets.tracePath, "as --loss-trace")->group("");
}

}  // namespace

void AddLoss(CLI::App &app, LossOptions &loss) {
    AddTo(app, LossTargets<std::optional<double>, std::optional<std::string>>{
                   .percent = loss.lossPercent,
                   .meanBurst = loss.meanBurst,
                   .seed = loss.seed,
                   .tracePath = loss.tracePath,
                   .percentHelp = "percent of packets to lose, 0 to below 100",
                   .percentRight = "a percentage from 0 to below 100, such as 10 or 2.5",
                   .burstHelp = "mean length of a loss in packets, 1 or more (independent losses)",
                   .seedHelp = "of the losses; the same seed, the same losses (1)",
                   .traceHelp = "file of 0 (received) and 1 (lost), one per packet; repeats"});
}

void AddLoss(CLI::App &app, LossGrid &grid) {
    AddTo(app,
          LossTargets<std::vector<double>, std::vector<std::string>>{
              .percent = grid.percents,
              .meanBurst = grid.meanBursts,
              .seed = grid.seed,
              .tracePath = grid.tracePaths,
              .percentHelp = "percent of packets to lose, 0 to below 100, or several: 5,10,20",
              .percentRight = "percentages from 0 to below 100, such as 10 or 5,10,20",
              .burstHelp = "mean length of a loss in packets, or several (independent losses)",
              .seedHelp = "of the losses; file number n gets seed + n (1)",
              .traceHelp = "file of 0 (received) and 1 (lost), one per packet; may be repeated"});
    for (const char *name : {"--loss", "--burst"})
        app.get_option(name)->delimiter(',');
}

std::unique_ptr<LossModel> MakeLossModel(const LossOptions &loss) {
    if (loss.tracePath && loss.lossPercent) {
        throw UsageError("--loss and --loss-trace: give one of them, either says what is lost");
    }
    LossGrid grid;
    if (loss.lossPercent) grid.percents = {*loss.lossPercent};
    if (loss.meanBurst) grid.meanBursts = {*loss.meanBurst};
    if (loss.tracePath) grid.tracePaths = {*loss.tracePath};
    grid.seed = loss.seed;
    return LossConditions(grid).front().MakeModel(loss.seed.value_or(1));
}

}  // namespace aiplc::tools
