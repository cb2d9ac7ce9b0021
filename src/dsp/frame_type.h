// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_FRAME_TYPE_H
#define AIPLC_FRAME_TYPE_H

#include <aiplc/channel.h>

namespace aiplc::dsp {

// True when the worker filled the frame.
inline bool IsPredicted(const AiPlcPkt &node) {
    return node.pktType == AIPLC_EXTRAPOLATE || node.pktType == AIPLC_INTERPOLATE;
}

// The node AIPLC_LOOK_AHEAD_FRAMES before the newest one: the frame to play in the history, its
// concealment in the codec's ring. ring has a head.
inline AiPlcPkt *OutputNode(const AiPlcRingList &ring) {
    AiPlcPkt *node = ring.head;
    for (int i = 0; i < AIPLC_LOOK_AHEAD_FRAMES; ++i)
        node = node->prev;
    return node;
}

}  // namespace aiplc::dsp

#endif
