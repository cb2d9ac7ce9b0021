// SPDX-License-Identifier: BSD-2-Clause

#include "bench/windows.h"

#include <cstring>
#include <stdexcept>

#include "worker/model/tensor_file.h"

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace aiplc::bench {

std::shared_ptr<const worker::Model> LoadModel() {
    std::string fault;
    std::shared_ptr<const worker::Model> model =
        worker::Model::Load(AIPLC_WEIGHTS "/model.bin", fault);
    if (!model) throw std::runtime_error(fault);
    return model;
}

std::vector<Window> LoadWindows() {
    std::string fault;
    const auto file = worker::TensorFile::Load(AIPLC_WEIGHTS "/model_vectors.bin", fault);
    if (!file) throw std::runtime_error(fault);
    const worker::Tensor *tensor = file->Find("window");
    if (tensor == nullptr || tensor->values.size() < sizeof(Window))
        throw std::runtime_error("the model's vectors hold no windows");
    std::vector<Window> windows(tensor->values.size() / sizeof(Window));
    std::memcpy(windows.data(), tensor->values.data(), windows.size() * sizeof(Window));
    return windows;
}

#if defined(__SSE__)
DenormalsFlushed::DenormalsFlushed() : m_before(_mm_getcsr()) {
    constexpr unsigned kFlushToZero = 0x8000;
    constexpr unsigned kDenormalsAreZero = 0x0040;
    _mm_setcsr(m_before | kFlushToZero | kDenormalsAreZero);
}

DenormalsFlushed::~DenormalsFlushed() {
    _mm_setcsr(m_before);
}
#else
DenormalsFlushed::DenormalsFlushed() = default;
DenormalsFlushed::~DenormalsFlushed() = default;
#endif

}  // namespace aiplc::bench
