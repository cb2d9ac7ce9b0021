// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_PACKET_RECORDS_H
#define AIPLC_PACKET_RECORDS_H

#include <aiplc/aiplc.h>

namespace aiplc::pipeline {

// Takes packetCount slots of the stream: moves its read position one frame per slot and copies the
// decoded frames of its packet records into receivedRing, from the head on. A malformed record is
// logged and ends the reading; nothing outside pktWordsLeft words is ever read.
void TakePackets(AiPlcHostStream &stream, StAiPlcChannel &channel, int32_t packetCount);

}  // namespace aiplc::pipeline

#endif
