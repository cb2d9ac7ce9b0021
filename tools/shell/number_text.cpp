// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/number_text.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace aiplc::tools {

std::string NumberText(double value, int digits) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.*g", digits, value);
    return text.data();
}

double Percent(double part, double whole) {
    return whole > 0.0 ? 100.0 * part / whole : 0.0;
}

std::optional<double> ParseNumber(const std::string &text) {
    char *end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0') return std::nullopt;
    return number;
}

}  // namespace aiplc::tools
