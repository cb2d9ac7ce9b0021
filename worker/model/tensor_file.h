// SPDX-License-Identifier: BSD-2-Clause
//
// Files of named arrays, as training/export.py writes them.

#ifndef AIPLC_WORKER_TENSOR_FILE_H
#define AIPLC_WORKER_TENSOR_FILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace aiplc::worker {

struct Tensor {
    enum class Kind : uint8_t { float32, int16 };

    std::string_view name;
    Kind kind = Kind::float32;
    std::vector<uint32_t> shape;
    std::span<const std::byte> values;  // row-major, unaligned
};

class TensorFile {
  public:
    TensorFile() = default;
    TensorFile(TensorFile &&) = default;  // the tensors' views stay on the bytes
    TensorFile &operator=(TensorFile &&) = default;
    TensorFile(const TensorFile &) = delete;

    // Empty with a fault that reads "PATH: what is wrong; what would be right", when the file
    // cannot be read, is damaged or none of this kind.
    static std::optional<TensorFile> Load(const std::string &path, std::string &fault);

    uint32_t Version() const { return m_version; }
    uint32_t Checksum() const { return m_checksum; }
    std::span<const Tensor> Tensors() const { return m_tensors; }
    // Null when there is none of that name.
    const Tensor *Find(std::string_view name) const;

  private:
    // The fault of the file; empty without one.
    std::string Parse();

    std::vector<std::byte> m_bytes;
    uint32_t m_version = 0;
    uint32_t m_checksum = 0;
    std::vector<Tensor> m_tensors;
};

}  // namespace aiplc::worker

#endif
