// SPDX-License-Identifier: BSD-2-Clause
//
// Linear prediction of a signal from its own past by Burg's method (J. P. Burg, "Maximum entropy
// spectral analysis", 1967): every reflection coefficient minimises the summed power of the forward
// and the backward prediction error, so the model is stable and the data need no window.

#ifndef AIPLC_WORKER_BURG_H
#define AIPLC_WORKER_BURG_H

#include <array>
#include <cstddef>
#include <span>

namespace aiplc::worker {

class Burg {
  public:
    static constexpr size_t kMaxOrder = 256;
    static constexpr size_t kMaxSegment = 1280;  // samples on either side of the gap

    // Fits one model to two stretches of one signal on either side of a gap (either may be empty),
    // minimising the error over both. Each ends at the gap: samples after it come reversed in
    // time, which leaves the model the same. Errors weigh more the nearer they are to the gap
    // (weighted Burg: D. N. Swingler, "A modified Burg algorithm for maximum entropy spectral
    // analysis", 1979), because speech changes within the stretch. The order is predictor.size(),
    // 1..kMaxOrder. predictor[order - 1 - i] is the weight of the sample i + 1 before the predicted
    // one, so that a prediction is the plain inner product with the past.
    void Fit(std::span<const float> oneSide, std::span<const float> otherSide,
             std::span<float> predictor) noexcept;

  private:
    using Samples = std::array<float, kMaxSegment>;

    // The prediction errors of one side. After stage m, forward[i] (i >= m) is the error of
    // predicting sample i from the m before it, backward[i - m] that of predicting sample i - m
    // from the m after it.
    struct Side {
        Samples forward{};
        Samples backward{};
        Samples weight{};
        size_t size = 0;
    };

    static void Load(std::span<const float> samples, Side &side) noexcept;

    std::array<Side, 2> m_sides;
    std::array<double, kMaxOrder + 1> m_filter{};    // of the forward error, m_filter[0] is 1
    std::array<double, kMaxOrder + 1> m_previous{};  // the filter one stage earlier
};

}  // namespace aiplc::worker

#endif
