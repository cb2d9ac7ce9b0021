// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_SILENT_FRAME_H
#define AIPLC_SILENT_FRAME_H

#include <aiplc/aiplc.h>

namespace aiplc::pipeline {

// Overwrites slot with frameSamples zero samples (at most 960) and the given fields, bands and
// annotations zero. On a failed allocation the slot stays as it was.
void WriteSilentFrame(AiPlcPkt *slot, uint32_t frameSamples, AiPlcPktType type, uint32_t seqNumber,
                      uint32_t bandwidth);

}  // namespace aiplc::pipeline

#endif
