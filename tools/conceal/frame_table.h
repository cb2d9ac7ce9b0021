// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_FRAME_TABLE_H
#define AIPLC_TOOLS_FRAME_TABLE_H

#include <cstdint>
#include <string>

#include "tools/play/receiver_handle.h"
#include "tools/shell/output_file.h"

namespace aiplc::tools {

// A CSV file with one row per output frame of a call.
class FrameTable {
  public:
    // Throws Failure when the target cannot be written or is the input,
    // whose descriptor input is.
    FrameTable(const std::string &target, int input);

    // callFrame: 0 = the call's first; seconds: where the frame begins in the WAV file.
    void Add(int64_t callFrame, double seconds, const PlayedFrame &frame);
    void Commit();

  private:
    OutputFile m_file;
    std::string m_pending;
};

}  // namespace aiplc::tools

#endif
