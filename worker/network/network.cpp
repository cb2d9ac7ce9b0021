// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/network.h"

namespace aiplc::worker {

namespace {

Channels Of(const std::vector<Row> &rows) {
    return {rows.data()->at, kColumns};
}

}  // namespace

Network::Network(std::shared_ptr<const Model> model)
    : m_model(std::move(model)),
      m_features(kInputs),
      m_residual(Convolution::Padded(m_model->Channels())),
      m_inner(m_residual.size()),
      m_outputs(Convolution::Padded(kOutputs)),
      m_context(Convolution::Padded(kContext * kBands)),
      m_wide(m_residual.size() * kWide) {}

void Network::Run() noexcept {
    ProjectInput();
    for (const Model::Block &block : m_model->blocks)
        RunBlock(block);
    ProjectOutput();
}

void Network::ProjectInput() noexcept {
    Convolve(m_model->inputProjection, Of(m_features), 0, Onto::bias, m_residual);
}

void Network::RunBlock(const Model::Block &block) noexcept {
    Activate(ResidualStream(), block.slopes1, &m_wide[kMargin], kWide, kSpectra);
    Convolve(block.conv, {&m_wide[kMargin], kWide}, block.dilation, Onto::bias, m_inner);
    const auto inner = std::span(m_inner).first(ResidualStream().size());
    Activate(inner, block.slopes2, inner.data()->at, kColumns, kColumns);
    Convolve(block.mix, Of(m_inner), 0, Onto::sum, m_residual);
}

void Network::ProjectOutput() noexcept {
    Activate(ResidualStream(), m_model->slopes, m_inner.data()->at, kColumns, kColumns);
    Convolve(m_model->outputProjection, Of(m_inner), 0, Onto::bias, m_outputs);
    Convolve(m_model->context, Of(m_inner), 0, Onto::bias, m_context);
}

}  // namespace aiplc::worker
