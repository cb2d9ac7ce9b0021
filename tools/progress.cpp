// SPDX-License-Identifier: BSD-2-Clause

#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace aiplc::tools {
namespace {

constexpr int64_t kCells = 40;
constexpr std::chrono::milliseconds kInterval{100};

}  // namespace

Progress::Progress(int64_t total, bool wanted)
    : m_total(std::max<int64_t>(total, 1)),
      m_visible(wanted && isatty(STDERR_FILENO) == 1),
      m_next(std::chrono::steady_clock::now() + kInterval) {}

Progress::~Progress() {
    if (m_drawn) std::fputs("\r\x1b[K", stderr);
}

void Progress::Show(int64_t done) {
    if (!m_visible || std::chrono::steady_clock::now() < m_next) return;
    m_next = std::chrono::steady_clock::now() + kInterval;
    m_drawn = true;
    const auto filled = static_cast<size_t>(kCells * done / m_total);
    const std::string bar =
        std::string(filled, '#') + std::string(static_cast<size_t>(kCells) - filled, '.');
    std::fprintf(stderr, "\r[%s] %3d %%", bar.c_str(), static_cast<int>(100 * done / m_total));
    std::fflush(stderr);
}

}  // namespace aiplc::tools
