// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace aiplc::tools {
namespace {

constexpr int64_t kCells = 40;
constexpr std::chrono::milliseconds kInterval{100};
// Before that much has passed the time left is a guess.
constexpr double kFirstSeconds = 1.0;

std::string TimeLeft(double seconds) {
    char text[32];
    const auto whole = std::lround(seconds);
    std::snprintf(text, sizeof text, ", %ld:%02ld left", whole / 60, whole % 60);
    return text;
}

}  // namespace

Progress::Progress(int64_t total, bool wanted)
    : m_total(std::max<int64_t>(total, 1)),
      m_visible(wanted && isatty(STDERR_FILENO) == 1),
      m_next(m_start + kInterval) {}

Progress::~Progress() {
    if (m_drawn) std::fputs("\r\x1b[K", stderr);
}

void Progress::Show(int64_t done) {
    const auto now = Clock::now();
    if (!m_visible || now < m_next) return;
    m_next = now + kInterval;
    m_drawn = true;
    const auto filled = static_cast<size_t>(kCells * done / m_total);
    const std::string bar =
        std::string(filled, '#') + std::string(static_cast<size_t>(kCells) - filled, '.');
    const double share = static_cast<double>(done) / static_cast<double>(m_total);
    const double passed = std::chrono::duration<double>(now - m_start).count();
    const std::string left =
        passed >= kFirstSeconds && done > 0 ? TimeLeft(passed / share - passed) : "";
    std::fprintf(stderr, "\r[%s] %3d %%%s\x1b[K", bar.c_str(), static_cast<int>(100.0 * share),
                 left.c_str());
    std::fflush(stderr);
}

}  // namespace aiplc::tools
