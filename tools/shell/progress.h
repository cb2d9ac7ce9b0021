// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_PROGRESS_H
#define AIPLC_TOOLS_PROGRESS_H

#include <chrono>
#include <cstdint>

namespace aiplc::tools {

// A bar with the time left on standard error, drawn at most ten times a second and wiped at the
// end; nothing where standard error is no terminal.
class Progress {
  public:
    Progress(int64_t total, bool wanted);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void Show(int64_t done);

  private:
    using Clock = std::chrono::steady_clock;

    int64_t m_total;
    bool m_visible;
    bool m_drawn = false;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_next;
};

}  // namespace aiplc::tools

#endif
