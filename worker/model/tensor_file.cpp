// SPDX-License-Identifier: BSD-2-Clause

#include "worker/model/tensor_file.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace aiplc::worker {

namespace {

constexpr std::string_view kMagic = "AIPLCNN1";
constexpr size_t kChecked = 20;  // the bytes from here on are under the checksum
constexpr size_t kHeader = 24;
constexpr uintmax_t kLargest = uintmax_t{256} << 20;
constexpr uint8_t kMostDimensions = 4;
constexpr uint32_t kMostTensors = 1024;

// Takes values from the front of the bytes; fails for good at the first one that is not whole.
class Reader {
  public:
    explicit Reader(std::span<const std::byte> bytes) : m_rest(bytes) {}

    template <typename T>
    T Take() {
        T value{};
        const auto bytes = Take(sizeof value);
        if (!failed) std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
    std::span<const std::byte> Take(uint64_t size) {
        failed = failed || size > m_rest.size();
        const auto taken = m_rest.first(failed ? 0 : static_cast<size_t>(size));
        m_rest = m_rest.subspan(taken.size());
        return taken;
    }
    size_t Left() const { return m_rest.size(); }

    bool failed = false;

  private:
    std::span<const std::byte> m_rest;
};

std::string_view AsText(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

Tensor TakeTensor(Reader &reader) {
    Tensor tensor;
    tensor.name = AsText(reader.Take(reader.Take<uint16_t>()));
    const auto kind = reader.Take<uint8_t>();
    const auto dimensions = reader.Take<uint8_t>();
    reader.failed = reader.failed || kind > 1 || dimensions > kMostDimensions;
    if (reader.failed) return tensor;
    tensor.kind = static_cast<Tensor::Kind>(kind);
    uint64_t size = tensor.kind == Tensor::Kind::float32 ? 4 : 2;
    for (int i = 0; i < dimensions; ++i) {
        tensor.shape.push_back(reader.Take<uint32_t>());
        if (size <= kLargest) size *= tensor.shape.back();  // below 2^64
    }
    tensor.values = reader.Take(size);
    return tensor;
}

}  // namespace

std::optional<TensorFile> TensorFile::Load(const std::string &path, std::string &fault) {
    TensorFile file;
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(path, error);
    if (error) {
        fault = path + ": cannot be read: " + error.message();
        return std::nullopt;
    }
    if (size < kHeader || size > kLargest) {
        fault = path + ": has " + std::to_string(size) + " bytes; it should have " +
                std::to_string(kHeader) + " to " + std::to_string(kLargest);
        return std::nullopt;
    }
    file.m_bytes.resize(static_cast<size_t>(size));
    std::ifstream stream(path, std::ios::binary);
    if (!stream.read(reinterpret_cast<char *>(file.m_bytes.data()),
                     static_cast<std::streamsize>(size))) {
        fault = path + ": cannot be read";
        return std::nullopt;
    }
    fault = file.Parse();
    if (fault.empty()) return file;
    fault = path + ": " + fault;
    return std::nullopt;
}

std::string TensorFile::Parse() {
    const std::span<const std::byte> bytes(m_bytes);
    if (AsText(bytes.first(kMagic.size())) != kMagic) {
        return "does not begin with " + std::string(kMagic) +
               "; it should be a file that training/export.py wrote";
    }
    Reader reader(bytes.subspan(kMagic.size()));
    m_version = reader.Take<uint32_t>();
    const auto count = reader.Take<uint32_t>();
    m_checksum = reader.Take<uint32_t>();
    reader.Take<uint32_t>();
    const auto checked = bytes.subspan(kChecked);
    const auto actual = static_cast<uint32_t>(
        crc32_z(0, reinterpret_cast<const Bytef *>(checked.data()), checked.size()));
    if (actual != m_checksum) {
        return "is damaged: its CRC-32 is " + std::to_string(actual) + ", it should be " +
               std::to_string(m_checksum) + "; copy it again";
    }
    reader.failed = reader.failed || count > kMostTensors;
    for (uint32_t i = 0; i < count && !reader.failed; ++i)
        m_tensors.push_back(TakeTensor(reader));
    if (reader.failed || reader.Left() != 0) {
        return "does not hold the " + std::to_string(count) +
               " tensors that its header says; it should be written by training/export.py";
    }
    return {};
}

const Tensor *TensorFile::Find(std::string_view name) const {
    const auto found = std::ranges::find(m_tensors, name, &Tensor::name);
    return found == m_tensors.end() ? nullptr : &*found;
}

}  // namespace aiplc::worker
