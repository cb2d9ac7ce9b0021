// SPDX-License-Identifier: BSD-2-Clause

#include "worker/model/model_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "worker/model/tensor_file.h"

namespace aiplc::worker {

namespace {

using Shape = std::vector<uint32_t>;

constexpr uint32_t kFirstOutputs = kOutputs;
constexpr uint32_t kFirstInputs = kInputs;
constexpr uint32_t kFirstContext = kContext * kBands;
constexpr uint32_t kSecondInputs = kRefinerInputs;
constexpr uint32_t kSecondOutputs = kRefinerOutputs;

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
    uint32_t TakeChannels(const std::string &name, uint32_t most);
    std::vector<float> Take(const std::string &name, const Shape &expected);
    size_t Append(std::span<const float> values, size_t padded);
    size_t TakeSlopes(const std::string &name, uint32_t channels);
    std::vector<size_t> TakeDilations(const std::string &name, uint32_t mostCount,
                                      uint32_t mostDilation);
    void TakeConvolution(const std::string &name, uint32_t outputs, uint32_t inputs, uint32_t taps,
                         Convolution &convolution);
    // Of one bin.
    void TakePoint(const std::string &name, uint32_t outputs, uint32_t inputs,
                   Convolution &convolution);
    void TakeLayer(const std::string &name, uint32_t channels, Model::Layer &layer);
    void Pack(std::span<const float> bias, std::span<const float> weights, uint32_t taps,
              Convolution &convolution);
    void TakeRefiner(Model &model);
    void Place(Model &model);
    void Fail(const std::string &what) {
        if (fault.empty()) fault = what;
    }

    const TensorFile &m_file;
    uint32_t m_channels = 0;
    uint32_t m_refinerChannels = 0;
    std::vector<float> m_weights;
    // Where in m_weights what these point to begins.
    std::vector<std::pair<const float **, size_t>> m_places;
};

std::unique_ptr<Model> ModelBuilder::Build() {
    auto model = std::make_unique<Model>();
    if (!ReadShape(*model)) return nullptr;
    const uint32_t channels = m_channels;
    TakeConvolution("enter", channels, kFirstInputs, 1, model->inputProjection);
    for (size_t i = 0; i < model->blocks.size(); ++i) {
        Model::Block &block = model->blocks[i];
        const std::string name = "blocks." + std::to_string(i) + '.';
        m_places.emplace_back(&block.slopes1, TakeSlopes(name + "act1.weight", channels));
        TakeConvolution(name + "conv", channels, channels, 3, block.conv);
        m_places.emplace_back(&block.slopes2, TakeSlopes(name + "act2.weight", channels));
        TakeConvolution(name + "mix", channels, channels, 1, block.mix);
    }
    m_places.emplace_back(&model->slopes, TakeSlopes("act.weight", channels));
    TakeConvolution("leave", kFirstOutputs, channels, 1, model->outputProjection);
    TakeConvolution("context", kFirstContext, channels, 1, model->context);
    TakeRefiner(*model);
    if (!fault.empty()) return nullptr;
    Place(*model);
    return model;
}

// Reads the properties that a file may choose: the numbers of channels, the blocks and layers,
// their dilations.
bool ModelBuilder::ReadShape(Model &model) {
    if (m_file.Version() != Model::kVersion) {
        Fail("is of version " + std::to_string(m_file.Version()) +
             " of the model; this worker needs " + std::to_string(Model::kVersion));
        return false;
    }
    m_channels = TakeChannels("enter.bias", Model::kMostChannels);
    m_refinerChannels = TakeChannels("refiner.enter.bias", Model::kMostRefinerChannels);
    for (const size_t d : TakeDilations("dilations", Model::kMostBlocks, Model::kMostDilation))
        model.blocks.emplace_back().dilation = d;
    for (const size_t d :
         TakeDilations("refiner.dilations", Model::kMostLayers, Model::kMostLayerDilation))
        model.layers.emplace_back().dilation = d;
    const size_t tensors = 14 + 6 * model.blocks.size() + 3 * model.layers.size();
    if (m_file.Tensors().size() != tensors)
        Fail("has " + std::to_string(m_file.Tensors().size()) + " tensors; it should have " +
             std::to_string(tensors) + " with " + std::to_string(model.blocks.size()) +
             " blocks and " + std::to_string(model.layers.size()) + " layers");
    return fault.empty();
}

uint32_t ModelBuilder::TakeChannels(const std::string &name, uint32_t most) {
    const Tensor *const bias = m_file.Find(name);
    const uint32_t channels = bias != nullptr && bias->shape.size() == 1 ? bias->shape[0] : 0;
    if (channels < Model::kLeastChannels || channels > most)
        Fail("has " + std::to_string(channels) + " channels (" + name + "); it should have " +
             std::to_string(Model::kLeastChannels) + " to " + std::to_string(most));
    return channels;
}

std::vector<size_t> ModelBuilder::TakeDilations(const std::string &name, uint32_t mostCount,
                                                uint32_t mostDilation) {
    const Tensor *const tensor = m_file.Find(name);
    const uint32_t count = tensor != nullptr && tensor->shape.size() == 1 ? tensor->shape[0] : 0;
    if (count < 1 || count > mostCount) {
        Fail("has " + std::to_string(count) + " " + name + "; it should have 1 to " +
             std::to_string(mostCount));
        return {};
    }
    std::vector<size_t> dilations;
    for (const float dilation : Take(name, {count})) {
        if (!(dilation >= 1 && dilation <= static_cast<float>(mostDilation) &&
              dilation == std::floor(dilation))) {
            Fail("has a dilation of " + std::to_string(dilation) + " (" + name +
                 "); they should be whole, 1 to " + std::to_string(mostDilation));
            return {};
        }
        dilations.push_back(static_cast<size_t>(dilation));
    }
    return dilations;
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
    return Append(Take(name, {channels}), channels);
}

void ModelBuilder::TakeConvolution(const std::string &name, uint32_t outputs, uint32_t inputs,
                                   uint32_t taps, Convolution &convolution) {
    Pack(Take(name + ".bias", {outputs}), Take(name + ".weight", {outputs, inputs, taps}), taps,
         convolution);
}

void ModelBuilder::TakePoint(const std::string &name, uint32_t outputs, uint32_t inputs,
                             Convolution &convolution) {
    Pack(Take(name + ".bias", {outputs}), Take(name + ".weight", {outputs, inputs, 1, 1}), 1,
         convolution);
}

void ModelBuilder::TakeLayer(const std::string &name, uint32_t channels, Model::Layer &layer) {
    m_places.emplace_back(&layer.slopes, TakeSlopes(name + "act.weight", channels));
    std::vector<float> bias = Take(name + "conv.bias", {channels});
    const std::vector<float> weights = Take(name + "conv.weight", {channels, channels, 3, 3});
    std::vector<float> part(weights.size() / 3);
    for (size_t bin = 0; bin < layer.conv.size(); ++bin) {
        for (size_t i = 0; i < part.size(); ++i)
            part[i] = weights[(i / 3 * 3 + bin) * 3 + i % 3];
        Pack(bias, part, 3, layer.conv[bin]);
        std::ranges::fill(bias, 0.0F);  // added once
    }
}

// weights: outputs x inputs x taps.
void ModelBuilder::Pack(std::span<const float> bias, std::span<const float> weights, uint32_t taps,
                        Convolution &convolution) {
    const size_t outputs = bias.size();
    const size_t inputs = weights.size() / taps / outputs;
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

void ModelBuilder::TakeRefiner(Model &model) {
    const uint32_t channels = m_refinerChannels;
    TakePoint("refiner.enter", channels, kSecondInputs, model.refinerInput);
    for (size_t i = 0; i < model.layers.size(); ++i)
        TakeLayer("refiner.layers." + std::to_string(i) + '.', channels, model.layers[i]);
    m_places.emplace_back(&model.refinerSlopes, TakeSlopes("refiner.act.weight", channels));
    TakePoint("refiner.leave", kSecondOutputs, channels, model.refinerOutput);
}

void ModelBuilder::Place(Model &model) {
    model.m_weights.reset(new (std::align_val_t{64}) float[m_weights.size()]);
    std::ranges::copy(m_weights, model.m_weights.get());
    for (const auto &[pointer, at] : m_places)
        *pointer = model.m_weights.get() + at;
    model.version = m_file.Version();
    model.checksum = m_file.Checksum();
    for (const Tensor &tensor : m_file.Tensors())
        model.parameters += tensor.values.size() / sizeof(float);
    model.parameters -= model.blocks.size() + model.layers.size();  // the dilations
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
