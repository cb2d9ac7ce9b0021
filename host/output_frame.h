// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_HOST_OUTPUT_FRAME_H
#define AIPLC_HOST_OUTPUT_FRAME_H

#include <aiplc/aiplc.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace aiplc::host {

// Where the audio of an output frame comes from.
enum class FrameSource {
    startup,       // silence before the first frame of the call
    decoded,       // its packet arrived in time
    late,          // its packet arrived within the look-ahead, after the frame was due
    fec,           // in-band redundancy of the packet after it
    dtx,           // comfort noise: the sender was pausing
    partial,       // a part of it arrived, the codec concealed the rest
    interpolated,  // worker, with received audio on both sides
    extrapolated,  // worker, with no received audio after it
    secondLook,    // worker, a single loss that the host asked for itself
    codec,         // the codec's own concealment
    muted,         // faded out at the prediction limit
    lost,          // silence in place of a frame that nobody filled
};
inline constexpr size_t kFrameSources = 12;

// The enumerator's name, for reports.
std::string_view FrameSourceName(FrameSource source);

// One 20 ms frame to play. samples stays valid until the receiver's next Pull.
struct OutputFrame {
    std::span<const int16_t> samples;  // 320 at 16 kHz, 960 at 48 kHz
    int64_t frame =
        -4;  // 0 = first frame of the call; -3..-1 start-up, -4 while no packet has come
    FrameSource source = FrameSource::startup;
    AiPlcPktType type = PKT_MUTE;  // the library's own verdict
    uint32_t bandwidth = 0;        // OPUS_BANDWIDTH_*, 0 for frames the library made
    int inferMode = 0;             // AiPlcInferMode that decided this frame, here or one before
    int decidedMode = 0;           // AiPlcInferMode that the library decided in this call
    float inferTimeMs = 0;         // of the request made in this call, 0 without one
    bool requested = false;        // the worker was asked in this call
    bool requestFailed = false;    // and gave no prediction in time
    bool secondLook = false;       // that request was a second look at a single loss
    bool heldOff = false;          // the worker was not asked because of an earlier failure
    bool fusedIntoPredict = false;
    bool fusedFromPredict = false;
    bool opusPlcApplied = false;    // played from the codec's own path
    uint32_t concealedSamples = 0;  // how many of samples are not received audio
};

}  // namespace aiplc::host

#endif
