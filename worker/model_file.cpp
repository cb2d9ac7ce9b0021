// SPDX-License-Identifier: BSD-2-Clause

#include "model_file.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "tensor_file.h"

namespace aiplc::worker {

namespace {

using Shape = std::vector<uint32_t>;

constexpr uint32_t kFirstOutputs = kOutputs;
constexpr uint32_t kFirstInputs = kInputs;

std::string Text(const Shape &shape) {
    std::string text;
    for (const uint32_t size : shape) {
        if (!text.empty()) text += 'x';
        text += std::to_string(size);
    }
    return text;
}

}  // namespace

// Checks the tensors in the order in which they are used and lays them out one behind the other.
class ModelBuilder {
  public:
    explicit ModelBuilder(const TensorFile &file) : m_file(file) {}

    std::unique_ptr<Model> Build();
    std::string fault;  // the first one, empty: none

  private:
    bool ReadShape(Model &model);
    std::vector<float> Take(const std::string &name, const Shape &expected);
    size_t Append(std::span<const float> values, size_t padded);
    size_t TakeSlopes(const std::string &name, uint32_t channels);
    void TakeConvolution(const std::string &name, uint32_t outputs, uint32_t inputs, uint32_t taps,
                         Convolution &convolution);
    void Place(Model &model);
    void Fail(const std::string &what) {
        if (fault.empty()) fault = what;
    }

    const TensorFile &m_file;
    uint32_t m_channels = 0;
    std::vector<float> m_weights;
    // Where in m_weights what these point to begins.
    std::vector<std::pair<const float **, size_t>> m_places;
    size_t m_parameters = 0;
};

std::unique_ptr<Model> ModelBuilder::Build() {
    auto model = std::make_unique<Model>();
    if (!ReadShape(*model)) return nullptr;
    const uint32_t channels = m_channels;
    TakeConvolution("enter", channels, kFirstInputs, 1, model->enter);
    for (size_t i = 0; i < model->blocks.size(); ++i) {
        Model::Block &block = model->blocks[i];
        const std::string name = "blocks." + std::to_string(i) + '.';
        m_places.emplace_back(&block.slopes1, TakeSlopes(name + "act1.weight", channels));
        TakeConvolution(name + "conv", channels, channels, 3, block.conv);
        m_places.emplace_back(&block.slopes2, TakeSlopes(name + "act2.weight", channels));
        TakeConvolution(name + "mix", channels, channels, 1, block.mix);
    }
    m_places.emplace_back(&model->slopes, TakeSlopes("act.weight", channels));
    TakeConvolution("leave", kFirstOutputs, channels, 1, model->leave);
    if (!fault.empty()) return nullptr;
    Place(*model);
    return model;
}

// What the file is free to choose: the number of channels, the blocks and their dilations.
bool ModelBuilder::ReadShape(Model &model) {
    if (m_file.Version() != Model::kVersion) {
        Fail("is of version " + std::to_string(m_file.Version()) +
             " of the model; this worker needs " + std::to_string(Model::kVersion));
        return false;
    }
    const Tensor *const enter = m_file.Find("enter.bias");
    m_channels = enter != nullptr && enter->shape.size() == 1 ? enter->shape[0] : 0;
    if (m_channels < Model::kLeastChannels || m_channels > Model::kMostChannels) {
        Fail("has " + std::to_string(m_channels) + " channels (enter.bias); it should have " +
             std::to_string(Model::kLeastChannels) + " to " + std::to_string(Model::kMostChannels));
        return false;
    }
    const Tensor *const dilations = m_file.Find("dilations");
    const uint32_t count =
        dilations != nullptr && dilations->shape.size() == 1 ? dilations->shape[0] : 0;
    if (count < 1 || count > Model::kMostBlocks) {
        Fail("has " + std::to_string(count) + " blocks (dilations); it should have 1 to " +
             std::to_string(Model::kMostBlocks));
        return false;
    }
    for (const float dilation : Take("dilations", {count})) {
        if (!(dilation >= 1 && dilation <= Model::kMostDilation &&
              dilation == std::floor(dilation)))
            Fail("has a dilation of " + std::to_string(dilation) + "; they should be whole, 1 to " +
                 std::to_string(Model::kMostDilation));
        else
            model.blocks.emplace_back().dilation = static_cast<size_t>(dilation);
    }
    const size_t tensors = 6 + 6 * size_t{count};
    if (m_file.Tensors().size() != tensors)
        Fail("has " + std::to_string(m_file.Tensors().size()) + " tensors; it should have " +
             std::to_string(tensors) + " with " + std::to_string(count) + " blocks");
    return fault.empty();
}

std::vector<float> ModelBuilder::Take(const std::string &name, const Shape &expected) {
    size_t size = 1;
    for (const uint32_t dimension : expected)
        size *= dimension;
    std::vector<float> values(size);
    const Tensor *const tensor = m_file.Find(name);
    if (tensor == nullptr) {
        Fail("lacks " + name + "; it should be there with shape " + Text(expected));
    } else if (tensor->kind != Tensor::Kind::float32 || tensor->shape != expected) {
        Fail("has " + name + " of " +
             (tensor->kind == Tensor::Kind::float32 ? "float32" : "int16") + " with shape " +
             Text(tensor->shape) + "; it should be float32 with shape " + Text(expected));
    } else {
        std::memcpy(values.data(), tensor->values.data(), tensor->values.size());
        if (!std::ranges::all_of(values, [](float v) { return std::isfinite(v); }))
            Fail("has values in " + name + " that are not finite; all should be");
    }
    return values;
}

// At the next multiple of 64 bytes; returns where.
size_t ModelBuilder::Append(std::span<const float> values, size_t padded) {
    constexpr size_t kFloats = 16;
    const size_t at = (m_weights.size() + kFloats - 1) / kFloats * kFloats;
    m_weights.resize(at + padded);
    std::ranges::copy(values, m_weights.begin() + static_cast<std::ptrdiff_t>(at));
    return at;
}

size_t ModelBuilder::TakeSlopes(const std::string &name, uint32_t channels) {
    m_parameters += channels;
    return Append(Take(name, {channels}), channels);
}

void ModelBuilder::TakeConvolution(const std::string &name, uint32_t outputs, uint32_t inputs,
                                   uint32_t taps, Convolution &convolution) {
    const std::vector<float> bias = Take(name + ".bias", {outputs});
    const std::vector<float> weights = Take(name + ".weight", {outputs, inputs, taps});
    m_parameters += bias.size() + weights.size();
    const size_t padded = Convolution::Padded(outputs);
    std::vector<float> packed(padded * inputs * taps);
    size_t to = 0;
    for (size_t panel = 0; panel < padded; panel += Convolution::kPanel) {
        for (size_t tap = 0; tap < taps; ++tap) {
            for (size_t input = 0; input < inputs; ++input) {
                for (size_t row = panel; row < panel + Convolution::kPanel; ++row, ++to)
                    if (row < outputs) packed[to] = weights[(row * inputs + input) * taps + tap];
            }
        }
    }
    m_places.emplace_back(&convolution.bias, Append(bias, padded));
    m_places.emplace_back(&convolution.weights, Append(packed, packed.size()));
    convolution.inputs = inputs;
    convolution.outputs = outputs;
    convolution.taps = taps;
}

void ModelBuilder::Place(Model &model) {
    model.m_weights.reset(new (std::align_val_t{64}) float[m_weights.size()]);
    std::ranges::copy(m_weights, model.m_weights.get());
    for (const auto &[pointer, at] : m_places)
        *pointer = model.m_weights.get() + at;
    model.version = m_file.Version();
    model.checksum = m_file.Checksum();
    model.parameters = m_parameters;
}

std::string Model::PathFor(const std::string &workerFolder) {
    const char *const set = std::getenv(kModelVariable);
    const std::string wish = set != nullptr ? set : "";
    if (wish == kNoModelWish) return {};
    return wish.empty() ? workerFolder + kModelFileName : wish;
}

std::unique_ptr<const Model> Model::Load(const std::string &path, std::string &fault) {
    const auto file = TensorFile::Load(path, fault);
    if (!file) return nullptr;
    ModelBuilder builder(*file);
    auto model = builder.Build();
    if (!builder.fault.empty()) fault = path + ": " + builder.fault;
    return model;
}

}  // namespace aiplc::worker
