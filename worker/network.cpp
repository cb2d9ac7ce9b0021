// SPDX-License-Identifier: BSD-2-Clause

#include "network.h"

namespace aiplc::worker {

namespace {

Channels Of(const std::vector<Row> &rows) {
    return {rows.data()->at, kColumns};
}

}  // namespace

Network::Network(std::shared_ptr<const Model> model)
    : m_model(std::move(model)),
      m_features(kInputs),
      m_path(Convolution::Padded(m_model->Channels())),
      m_inner(m_path.size()),
      m_outputs(Convolution::Padded(kOutputs)),
      m_context(Convolution::Padded(kContext * kBands)),
      m_wide(m_path.size() * kWide) {}

void Network::Run() noexcept {
    Enter();
    for (const Model::Block &block : m_model->blocks)
        RunBlock(block);
    Leave();
}

void Network::Enter() noexcept {
    Convolve(m_model->enter, Of(m_features), 0, Onto::bias, m_path);
}

void Network::RunBlock(const Model::Block &block) noexcept {
    Activate(Path(), block.slopes1, &m_wide[kMargin], kWide, kSpectra);
    Convolve(block.conv, {&m_wide[kMargin], kWide}, block.dilation, Onto::bias, m_inner);
    const auto inner = std::span(m_inner).first(Path().size());
    Activate(inner, block.slopes2, inner.data()->at, kColumns, kColumns);
    Convolve(block.mix, Of(m_inner), 0, Onto::sum, m_path);
}

void Network::Leave() noexcept {
    Activate(Path(), m_model->slopes, m_inner.data()->at, kColumns, kColumns);
    Convolve(m_model->leave, Of(m_inner), 0, Onto::bias, m_outputs);
    Convolve(m_model->context, Of(m_inner), 0, Onto::bias, m_context);
}

}  // namespace aiplc::worker
