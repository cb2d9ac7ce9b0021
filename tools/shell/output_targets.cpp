// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/output_targets.h"

#include <filesystem>

#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

bool SamePlace(const std::string &one, const std::string &other) {
    if (one.empty() || other.empty() || one == "/dev/null") return false;
    return one == other || std::filesystem::path(one).lexically_normal() ==
                               std::filesystem::path(other).lexically_normal();
}

}  // namespace

void CheckDistinct(const std::vector<OutputTarget> &targets) {
    for (size_t i = 0; i < targets.size(); ++i) {
        const auto &[option, place] = targets[i];
        for (size_t k = i + 1; k < targets.size(); ++k) {
            if (!SamePlace(place, targets[k].second)) continue;
            throw UsageError(option + " and " + targets[k].first + " both write to " +
                             (place == "-" ? "standard output" : place) +
                             "; give each a place of its own");
        }
    }
}

void CheckNoInput(const std::vector<OutputTarget> &targets,
                  const std::vector<std::string> &inputs) {
    for (const auto &[option, place] : targets) {
        if (place.empty() || place == "-") continue;
        for (const std::string &input : inputs) {
            std::error_code absent;
            if (!std::filesystem::equivalent(place, input, absent) || absent) continue;
            throw Failure(place, "is an input itself; give " + option + " another file");
        }
    }
}

}  // namespace aiplc::tools
