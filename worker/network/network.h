// SPDX-License-Identifier: BSD-2-Clause
//
// The layers of the network, over buffers that are allocated once.

#ifndef AIPLC_WORKER_NETWORK_H
#define AIPLC_WORKER_NETWORK_H

#include <memory>
#include <span>
#include <vector>

#include "worker/model/model_file.h"

namespace aiplc::worker {

class Network {
  public:
    explicit Network(std::shared_ptr<const Model> model);  // throws std::bad_alloc

    // To be filled before Run.
    std::span<Row, kInputs> Features() { return std::span(m_features).first<kInputs>(); }
    // The values that go to the second stage.
    std::span<const Row, kContext * kBands> Context() const {
        return std::span(m_context).first<kContext * kBands>();
    }
    // All layers: ProjectInput, RunBlock for each block in turn, ProjectOutput.
    void Run() noexcept;
    std::span<const Row, kOutputs> Outputs() const {
        return std::span(m_outputs).first<kOutputs>();
    }

    const Model &Weights() const { return *m_model; }

  private:
    void ProjectInput() noexcept;
    void RunBlock(const Model::Block &block) noexcept;
    void ProjectOutput() noexcept;
    // The channels after ProjectInput and after each block.
    std::span<const Row> ResidualStream() const {
        return std::span(m_residual).first(m_model->Channels());
    }

    // Rows with room for the largest dilation on either side, which stays zero.
    static constexpr size_t kMargin = Model::kMostDilation;
    static constexpr size_t kWide = kMargin + kColumns + kMargin;

    std::shared_ptr<const Model> m_model;
    std::vector<Row> m_features;
    std::vector<Row> m_residual;
    std::vector<Row> m_inner;
    std::vector<Row> m_outputs;
    std::vector<Row> m_context;
    std::vector<float> m_wide;
};

}  // namespace aiplc::worker

#endif
