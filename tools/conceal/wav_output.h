// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_WAV_OUTPUT_H
#define AIPLC_TOOLS_WAV_OUTPUT_H

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tools/shell/output_file.h"

namespace aiplc::tools {

class InputFile;

// A mono 16-bit WAV file made of a stretch of the samples given to it.
class WavOutput {
  public:
    // skip: samples to leave out at the beginning; length: samples to write after that; gain: a
    // factor. Throws Failure when the target cannot be written or is the input,
    // whose descriptor input is.
    WavOutput(const std::string &target, int input, int sampleRate, int64_t skip, int64_t length,
              double gain);

    // Throws Failure when the disk is full.
    void Write(std::span<const int16_t> samples);
    // Finishes the file and makes it appear.
    void Commit();

  private:
    struct Close {
        void operator()(SNDFILE *file) const { sf_close(file); }
    };

    OutputFile m_file;
    std::unique_ptr<SNDFILE, Close> m_wav;
    int64_t m_skip;
    int64_t m_left;
    double m_gain;
    std::vector<int16_t> m_scaled;
};

}  // namespace aiplc::tools

#endif
