// SPDX-License-Identifier: BSD-2-Clause
//
// Weights that nobody exported: the worker takes them or says what is wrong with them.

#include "worker/model/model_file.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <zlib.h>

#include <cstring>
#include <string_view>
#include <vector>

#include "fuzz/memory_file.h"
#include "worker/model/network_layout.h"

namespace {

using aiplc::fuzz::Require;
using aiplc::worker::Model;

constexpr size_t kCountAt = 12;
constexpr size_t kChecksumAt = 16;
constexpr size_t kCheckedFrom = 20;

// A sound file with all weights 1, which the input then spoils.
class Builder {
  public:
    Builder(uint32_t channels, uint32_t blocks, uint32_t layers) {
        Put(std::string_view("AIPLCNN1"));
        for (const uint32_t field : {Model::kVersion, 0U, 0U, 0U})
            Put(field);
        Add("dilations", {blocks});
        Add("enter.bias", {channels});
        Add("enter.weight", {channels, aiplc::worker::kInputs, 1});
        for (uint32_t i = 0; i < blocks; ++i)
            AddBlock("blocks." + std::to_string(i) + '.', channels);
        Add("act.weight", {channels});
        Add("leave.bias", {aiplc::worker::kOutputs});
        Add("leave.weight", {aiplc::worker::kOutputs, channels, 1});
        Add("context.bias", {aiplc::worker::kContext * aiplc::worker::kBands});
        Add("context.weight", {aiplc::worker::kContext * aiplc::worker::kBands, channels, 1});
        AddRefiner(channels, layers);
        std::memcpy(&file[kCountAt], &m_count, sizeof m_count);
    }

    std::vector<uint8_t> file;

  private:
    template <typename T>
    void Put(T value) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&value);
        file.insert(file.end(), bytes, bytes + sizeof value);
    }
    void Put(std::string_view text) { file.insert(file.end(), text.begin(), text.end()); }
    void Add(const std::string &name, const std::vector<uint32_t> &shape) {
        Put(static_cast<uint16_t>(name.size()));
        Put(std::string_view(name));
        Put(uint8_t{0});
        Put(static_cast<uint8_t>(shape.size()));
        uint32_t values = 1;
        for (const uint32_t dimension : shape) {
            Put(dimension);
            values *= dimension;
        }
        for (uint32_t i = 0; i < values; ++i)
            Put(1.0F);
        ++m_count;
    }
    void AddBlock(const std::string &name, uint32_t channels) {
        Add(name + "act1.weight", {channels});
        Add(name + "conv.bias", {channels});
        Add(name + "conv.weight", {channels, channels, 3});
        Add(name + "act2.weight", {channels});
        Add(name + "mix.bias", {channels});
        Add(name + "mix.weight", {channels, channels, 1});
    }
    void AddRefiner(uint32_t channels, uint32_t layers) {
        Add("refiner.dilations", {layers});
        Add("refiner.enter.bias", {channels});
        Add("refiner.enter.weight", {channels, aiplc::worker::kRefinerInputs, 1, 1});
        for (uint32_t i = 0; i < layers; ++i) {
            const std::string name = "refiner.layers." + std::to_string(i) + '.';
            Add(name + "act.weight", {channels});
            Add(name + "conv.bias", {channels});
            Add(name + "conv.weight", {channels, channels, 3, 3});
        }
        Add("refiner.act.weight", {channels});
        Add("refiner.leave.bias", {aiplc::worker::kRefinerOutputs});
        Add("refiner.leave.weight", {aiplc::worker::kRefinerOutputs, channels, 1, 1});
    }

    uint32_t m_count = 0;
};

std::vector<uint8_t> SpoiledModel(FuzzedDataProvider &data) {
    const auto channels = data.ConsumeIntegralInRange<uint32_t>(15, 18);
    const auto blocks = data.ConsumeIntegralInRange<uint32_t>(0, 2);
    auto file = Builder(channels, blocks, data.ConsumeIntegralInRange<uint32_t>(0, 2)).file;
    while (data.remaining_bytes() > 0) {
        const auto at = data.ConsumeIntegralInRange<size_t>(0, file.size() - 1);
        file[at] = data.ConsumeIntegral<uint8_t>();
    }
    return file;
}

// Only a right checksum leads any further, so a zero one is put right.
void Sign(std::vector<uint8_t> &file) {
    uint32_t checksum = 0;
    if (file.size() < kCheckedFrom) return;
    std::memcpy(&checksum, &file[kChecksumAt], sizeof checksum);
    if (checksum != 0) return;
    checksum =
        static_cast<uint32_t>(crc32_z(0, file.data() + kCheckedFrom, file.size() - kCheckedFrom));
    std::memcpy(&file[kChecksumAt], &checksum, sizeof checksum);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    auto content = data.ConsumeBool() ? SpoiledModel(data) : data.ConsumeRemainingBytes<uint8_t>();
    Sign(content);
    const aiplc::fuzz::MemoryFile file(content);
    std::string fault;
    const auto model = Model::Load(file.Path(), fault);
    if (model == nullptr) {
        Require(fault.starts_with(file.Path() + ": "));
        return 0;
    }
    Require(fault.empty() && model->Channels() >= Model::kLeastChannels);
    for (const Model::Block &block : model->blocks)
        Require(block.slopes1 != nullptr && block.conv.weights != nullptr && block.dilation > 0);
    return 0;
}
