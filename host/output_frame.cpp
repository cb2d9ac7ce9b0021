// SPDX-License-Identifier: BSD-2-Clause

#include "host/output_frame.h"

namespace aiplc::host {

std::string_view FrameSourceName(FrameSource source) {
    static constexpr std::array<std::string_view, kFrameSources> kNames = {
        "startup",      "decoded",      "late",       "fec",   "dtx",   "partial",
        "interpolated", "extrapolated", "secondLook", "codec", "muted", "lost"};
    return kNames.at(static_cast<size_t>(source));
}

}  // namespace aiplc::host
