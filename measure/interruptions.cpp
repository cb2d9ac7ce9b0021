// SPDX-License-Identifier: BSD-2-Clause

#include "measure/interruptions.h"

#include <algorithm>

#include "measure/speech_range.h"

namespace aiplc::measure {
namespace {

constexpr size_t kShortestBlocks = 15;  // 150 ms

}  // namespace

std::vector<size_t> Interruptions(std::span<const int16_t> signal,
                                  std::span<const int16_t> reference, int sampleRate) {
    const auto block = static_cast<size_t>(sampleRate / 100);
    const size_t blocks = std::min(signal.size(), reference.size()) / block;
    SpeechRange range;
    for (size_t i = 0; i < blocks; ++i)
        range.Add(MeanPower(reference.subspan(i * block, block)));

    std::vector<size_t> starts;
    size_t missing = 0;  // blocks of speech in the run of silence so far
    size_t start = 0;
    const auto endRun = [&] {
        if (missing >= kShortestBlocks) starts.push_back(start);
        missing = 0;
    };
    for (size_t i = 0; i < blocks; ++i) {
        if (range.IsSpeech(MeanPower(signal.subspan(i * block, block)))) {
            endRun();
        } else if (range.IsSpeech(MeanPower(reference.subspan(i * block, block)))) {
            if (missing++ == 0) start = i * block;
        }
    }
    endRun();
    return starts;
}

}  // namespace aiplc::measure
