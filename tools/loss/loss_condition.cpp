// SPDX-License-Identifier: BSD-2-Clause

#include "tools/loss/loss_condition.h"

#include <filesystem>
#include <set>

#include "tools/shell/failure.h"
#include "tools/shell/number_text.h"

namespace aiplc::tools {
namespace {

LossCondition Simulated(double percent, std::optional<double> meanBurst) {
    LossCondition condition;
    condition.percent = percent;
    condition.meanBurst = meanBurst;
    condition.id = "loss" + NumberText(percent);
    condition.name = NumberText(percent) + " %";
    if (meanBurst) {
        condition.id += "-burst" + NumberText(*meanBurst);
        condition.name += " in bursts of " + NumberText(*meanBurst);
    }
    (void)condition.MakeModel(1);  // throws when bursts this short cannot lose that much
    return condition;
}

}  // namespace

std::unique_ptr<LossModel> LossCondition::MakeModel(uint64_t seed) const {
    if (trace) return std::make_unique<LossTrace>(*trace);
    if (!percent) return nullptr;
    return std::make_unique<GilbertElliott>(*percent / 100.0, meanBurst.value_or(0.0), seed);
}

std::vector<LossCondition> LossConditions(const LossGrid &grid) {
    if (grid.percents.empty() && (!grid.meanBursts.empty() || grid.seed)) {
        throw UsageError(std::string(grid.seed ? "--seed" : "--burst") +
                         ": shapes the losses of --loss; give --loss PERCENT as well");
    }
    std::vector<LossCondition> conditions;
    for (const double percent : grid.percents) {
        if (grid.meanBursts.empty()) conditions.push_back(Simulated(percent, std::nullopt));
        for (const double meanBurst : grid.meanBursts)
            conditions.push_back(Simulated(percent, meanBurst));
    }
    for (size_t i = 0; i < grid.tracePaths.size(); ++i) {
        LossCondition condition;
        condition.id = "trace" + std::to_string(i + 1);
        condition.name = std::filesystem::path(grid.tracePaths[i]).filename().string();
        condition.trace = LossTrace::Load(grid.tracePaths[i]);
        conditions.push_back(std::move(condition));
    }
    std::set<std::string> ids;
    for (const LossCondition &condition : conditions) {
        if (!ids.insert(condition.id).second)
            throw UsageError(condition.name + " is asked for twice; give every loss once");
    }
    if (conditions.empty()) {
        conditions.emplace_back();
        conditions.back().id = "own";
        conditions.back().name = "the call's own losses";
    }
    return conditions;
}

}  // namespace aiplc::tools
