// SPDX-License-Identifier: BSD-2-Clause
//
// The second stage of the network, over buffers that are allocated once: a picture of bins by
// spectra; training/refiner.py defines it.

#ifndef AIPLC_WORKER_REFINER_H
#define AIPLC_WORKER_REFINER_H

#include <array>
#include <memory>
#include <span>
#include <vector>

#include "worker/model/model_file.h"
#include "worker/network/band_weights.h"
#include "worker/network/short_spectra.h"
#include "worker/network/spectral_features.h"
#include "worker/network/window_facts.h"

namespace aiplc::worker {

class Refiner {
  public:
    explicit Refiner(std::shared_ptr<const Model> model);  // throws std::bad_alloc

    // Inputs and outputs of the first stage.
    struct Stage {
        const SignalSpectra &signals;
        const Spectra &noise;
        const BandLevels &noiseLevels;
        std::span<const Row, kContext * kBands> context;
        const WindowFacts &facts;
        size_t first;  // spectra before it have no part in the open samples
    };

    // Adds to the change of the prediction.
    void Refine(const Stage &stage, Spectra &change) noexcept;

  private:
    // The parts of Refine, for one bin or a whole layer.
    using Features = std::array<Row, kRefinerInputs>;
    void MakeFeatures(const Stage &stage, size_t bin, Features &features) noexcept;
    void ProjectInput(size_t bin, const Features &features) noexcept;
    void RunLayer(const Model::Layer &layer) noexcept;
    std::span<const Row, kRefinerOutputs> ProjectOutput(size_t bin) noexcept;
    // A bin's channels after ProjectInput and after each layer, spectrum kRefined in the middle of
    // a row.
    std::span<const Row> ResidualStream(size_t bin) const {
        return std::span(m_residual).subspan(bin * m_padded, m_channels);
    }

    // Columns of zeros behind a row, rows of zeros on either side of the picture.
    static constexpr size_t kMargin = Model::kMostLayerDilation;
    static constexpr size_t kWide = kColumns + kMargin;
    // Rows of the picture are so many columns behind those of the first stage: what is changed
    // fills their second half, and what layers see of the rest is in the first.
    static constexpr size_t kShift = kColumns / 2 - kRefined;
    static_assert(kSpectra + kShift == kColumns && kRefined >= kMargin);

    void SetPrediction(const Stage &stage, const Spectra &change) noexcept;
    void AddGained(const Stage &stage, size_t bin, std::span<const Row, kRefinerOutputs> gains,
                   Spectra &change) const noexcept;
    Row NoiseLevel(const Stage &stage, size_t bin) const noexcept;
    // Counted from kMargin below the picture's first.
    float *Wide(size_t bin) { return &m_wide[bin * m_channels * kWide]; }

    std::shared_ptr<const Model> m_model;
    size_t m_channels;
    size_t m_padded;
    BandWeights m_bands;
    Spectra m_prediction{};       // with the change of the first stage
    std::vector<Row> m_residual;  // m_padded rows a bin
    std::vector<Row> m_shifted;
    std::vector<Row> m_inner;
    std::vector<Row> m_outputs;
    std::vector<float> m_wide;
};

}  // namespace aiplc::worker

#endif
