// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_PACER_H
#define AIPLC_TOOLS_PACER_H

#include <cstdint>
#include <ctime>

namespace aiplc::tools {

// The clock of a call in real time: one tick every 20 ms, whatever the work in between takes.
class Pacer {
  public:
    Pacer();
    // Sleeps until the next tick. A tick whose moment has passed before the work on the one before
    // it was done counts as missed; ticks are never dropped.
    void WaitForTick();
    [[nodiscard]] int64_t Missed() const { return m_missed; }

  private:
    timespec m_deadline{};
    int64_t m_missed = 0;
};

}  // namespace aiplc::tools

#endif
