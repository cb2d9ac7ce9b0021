// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_OUTPUT_AREA_H
#define AIPLC_OUTPUT_AREA_H

#include <aiplc/aiplc.h>

namespace aiplc::pipeline {

// Makes room for six frames behind outWrite by moving what the host has not taken yet, and one
// frame more, to the start of the area. An area too small for that is logged and left as it is.
void CompactOutput(AiPlcHostStream &stream, uint32_t sampleRate);

// Appends the node's samples at outWrite and returns their number; 0, logged, when they do not fit.
uint16_t AppendOutput(AiPlcHostStream &stream, const AiPlcPkt &node);

}  // namespace aiplc::pipeline

#endif
