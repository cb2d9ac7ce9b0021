// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_WINDOWS_H
#define AIPLC_BENCH_WINDOWS_H

#include <array>
#include <memory>
#include <vector>

#include "worker/model/model_file.h"
#include "worker/window/predictor.h"

namespace aiplc::bench {

using Window = std::array<int16_t, worker::kWindowSamples>;

// The weights in training/weights, and recorded windows with a gap to fill from the vectors there.
// Throw std::runtime_error.
std::shared_ptr<const worker::Model> LoadModel();
std::vector<Window> LoadWindows();

// As the worker sets its processor: decaying filters run into denormal numbers, which are slow.
class DenormalsFlushed {
  public:
    DenormalsFlushed();
    ~DenormalsFlushed();
    DenormalsFlushed(const DenormalsFlushed &) = delete;
    DenormalsFlushed &operator=(const DenormalsFlushed &) = delete;

  private:
    unsigned m_before = 0;
};

}  // namespace aiplc::bench

#endif
