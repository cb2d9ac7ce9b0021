// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_PACE_H
#define AIPLC_BENCH_PACE_H

#include <cstdint>
#include <ctime>

namespace aiplc::bench {

// Monotonic; only differences have a meaning.
int64_t Nanoseconds();

// Back to back everything stays in the caches and the core at its clock; at the pace of a call the
// core slept before each frame and others used it.
enum class Rhythm { backToBack, paced };

inline const char *NameOf(Rhythm rhythm) {
    return rhythm == Rhythm::paced ? "paced" : "back_to_back";
}

// 20 ms ticks of a paced run: AIPLC_BENCH_PACED_FRAMES, or 500, which is ten seconds.
int64_t PacedTicks();

class Pace {
  public:
    explicit Pace(Rhythm rhythm);
    // Until the next tick, when paced. A tick that has passed already starts the clock anew.
    void Wait();

  private:
    bool m_paced;
    timespec m_next{};
};

}  // namespace aiplc::bench

#endif
