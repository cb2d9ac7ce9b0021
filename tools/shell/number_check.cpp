// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/number_check.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <system_error>

#include "tools/shell/number_text.h"

namespace aiplc::tools {

CLI::Validator IsNumber(const std::string &right) {
    const auto check = [right](const std::string &text) -> std::string {
        const std::optional<double> number = ParseNumber(text);
        if (number && std::isfinite(*number)) return {};
        return "'" + text + "' is no number; give " + right;
    };
    return {check, ""};
}

CLI::Validator IsWholeNumber(const std::string &right) {
    const auto check = [right](const std::string &text) -> std::string {
        const bool isHex = text.starts_with("0x") || text.starts_with("0X");
        const char *end = text.data() + text.size();
        uint64_t number = 0;
        const auto [rest, error] =
            std::from_chars(text.data() + (isHex ? 2 : 0), end, number, isHex ? 16 : 10);
        if (error == std::errc{} && rest == end) return {};
        return "'" + text + "' is no whole number; give " + right;
    };
    return {check, ""};
}

CLI::Validator IsPayloadType() {
    const auto check = [](const std::string &text) -> std::string {
        const std::optional<double> type = ParseNumber(text);
        const bool isRight = type && *type == std::floor(*type) && *type >= 0 && *type <= 127 &&
                             (*type < 64 || *type > 95);
        if (isRight) return {};
        return "'" + text + "' is no payload type; give 0 to 63 or 96 to 127";
    };
    return {check, ""};
}

}  // namespace aiplc::tools
