// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_PACKET_RECORDS_H
#define AIPLC_PACKET_RECORDS_H

#include <aiplc/aiplc.h>

namespace aiplc::pipeline {

struct TakenPackets {
    uint16_t slots;  // slots to play: packetCount, or those before a malformed record
    bool hasFrame;   // at least one of them holds a frame of this call
};

// Takes packetCount slots of the stream: moves its read position one frame per slot and copies the
// decoded frames of its packet records into receivedRing, from the head on. A malformed record is
// logged and ends the reading; nothing outside pktWordsLeft words is ever read.
TakenPackets TakePackets(AiPlcHostStream &stream, StAiPlcChannel &channel, int32_t packetCount);

}  // namespace aiplc::pipeline

#endif
