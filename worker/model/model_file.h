// SPDX-License-Identifier: BSD-2-Clause
//
// The network's weights, as the worker uses them.

#ifndef AIPLC_WORKER_MODEL_FILE_H
#define AIPLC_WORKER_MODEL_FILE_H

#include <array>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "worker/model/convolution.h"

namespace aiplc::worker {

// Unchanged once loaded: any threads may read it.
class Model {
  public:
    static constexpr uint32_t kVersion = 2;  // of training/model.py
    static constexpr uint32_t kLeastChannels = 16;
    static constexpr uint32_t kMostChannels = 512;
    static constexpr uint32_t kMostBlocks = 16;
    static constexpr uint32_t kMostDilation = 16;
    static constexpr uint32_t kMostRefinerChannels = 48;
    static constexpr uint32_t kMostLayers = 8;
    static constexpr uint32_t kMostLayerDilation = 8;

    // x + mix(PReLU(conv(PReLU(x)))); slopes of the PReLUs by channel.
    struct Block {
        const float *slopes1 = nullptr;
        Convolution conv;
        const float *slopes2 = nullptr;
        Convolution mix;
        size_t dilation = 1;
    };

    // x + conv(PReLU(x)) over bins and spectra: of the bin dilation below, the bin itself, the one
    // dilation above, each over the spectra.
    struct Layer {
        const float *slopes = nullptr;
        std::array<Convolution, 3> conv;
        size_t dilation = 1;
    };

    // Null with a fault that reads "PATH: what is wrong; what would be right", when the file is
    // missing, damaged or of another model.
    static std::unique_ptr<const Model> Load(const std::string &path, std::string &fault);

    Convolution inputProjection;
    std::vector<Block> blocks;
    const float *slopes = nullptr;  // of the PReLU before the output projection
    Convolution outputProjection;
    Convolution context;  // for the second stage

    Convolution refinerInput;
    std::vector<Layer> layers;
    const float *refinerSlopes = nullptr;
    Convolution refinerOutput;

    uint32_t version = 0;
    uint32_t checksum = 0;  // CRC-32 as in the file
    size_t parameters = 0;

    size_t Channels() const { return inputProjection.outputs; }

  private:
    friend class ModelBuilder;
    struct FreeAligned {
        void operator()(float *block) const { operator delete[](block, std::align_val_t{64}); }
    };

    std::unique_ptr<float[], FreeAligned> m_weights;  // all of them
};

}  // namespace aiplc::worker

#endif
