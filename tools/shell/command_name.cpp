// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/command_name.h"

#include <unistd.h>

#include <algorithm>
#include <numeric>

namespace aiplc::tools {
namespace {

constexpr size_t kMaxSlips = 3;

// Letters to insert, delete or replace to turn one word into the other (Levenshtein, 1966).
size_t Slips(const std::string &from, const std::string &to) {
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (const char letter : from) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = diagonal + (letter == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string UnknownCommand(const std::string &word, const std::vector<std::string> &commands) {
    std::string message = "'" + word + "' is no command; ";
    if (access(word.c_str(), F_OK) == 0)
        return message + "to conceal that file: aiplc conceal " + word + " -o OUT.wav";
    const auto nearest = std::ranges::min_element(
        commands, {}, [&](const std::string &command) { return Slips(word, command); });
    if (Slips(word, *nearest) <= kMaxSlips) return message + "did you mean " + *nearest + "?";
    message += "there are ";
    for (const std::string &command : commands)
        message += (command == commands.front() ? "" : " and ") + command;
    return message;
}

}  // namespace aiplc::tools
