// SPDX-License-Identifier: BSD-2-Clause

/// @file
/// The records that a channel of libxanu_audiocore_aiplc consists of: frames, rings and the channel
/// itself.
///
/// A host needs of them the memory for a StAiPlcChannel and the fields that aiplc.h names. The rest
/// is documented for hosts that use the building blocks.

#ifndef AIPLC_CHANNEL_H
#define AIPLC_CHANNEL_H

#include <stdint.h>

/// Marks a function or table that the shared library exports.
#if defined(_WIN32)
#if defined(AIPLC_BUILDING)
#define AIPLC_EXPORT __declspec(dllexport)
#else
#define AIPLC_EXPORT __declspec(dllimport)
#endif
#else
#define AIPLC_EXPORT __attribute__((visibility("default")))
#endif

/// @name Sizes, in samples unless named otherwise
/// @{
#define AIPLC_FRAME_SAMPLES_16K 320  ///< 20 ms at 16 kHz
#define AIPLC_FRAME_SAMPLES_48K 960  ///< 20 ms at 48 kHz
#define AIPLC_BANDS 3                ///< bands of the filter bank: 0-8, 8-16, 16-24 kHz
#define AIPLC_BAND_SAMPLES 320       ///< 20 ms of one band, at 16 kHz
#define AIPLC_WINDOW_FRAMES 8        ///< frames of a request
#define AIPLC_WINDOW_SAMPLES 2560    ///< those frames at 16 kHz
#define AIPLC_BANK_TAPS 48           ///< state of the filter bank, in floats
#define AIPLC_BANK_DELAY 44          ///< of analysis and synthesis of the bank, at 48 kHz
#define AIPLC_LOW_PASS_TAPS_16K 31   ///< taps of the narrowband low-pass filter at 16 kHz
#define AIPLC_LOW_PASS_TAPS_48K 91   ///< taps of the narrowband low-pass filter at 48 kHz
#define AIPLC_CHANNEL_BYTES 15200    ///< bytes of a channel
#define AIPLC_LOOK_AHEAD_FRAMES 3    ///< frames between the newest one and the one that is played
/// Samples at the start of a low band that are cleared in the first frame behind a gap at 48 kHz,
/// where the band filters have not settled.
#define AIPLC_UNSETTLED_SAMPLES 16
/// Bytes of the output area below which AiPlcApply compacts it: six frames at 48 kHz.
#define AIPLC_OUTPUT_RESERVE_BYTES 11520
/// @}

/// The codec's code of narrowband audio (4 kHz), OPUS_BANDWIDTH_NARROWBAND of libopus.
#define AIPLC_BANDWIDTH_NARROWBAND 1101

#ifdef __cplusplus
class AiplcAdapterInterface;
extern "C" {
#else
typedef struct AiplcAdapterInterface AiplcAdapterInterface;
#endif

/// The origin of a frame's audio.
#ifdef __cplusplus
enum AiPlcPktType : uint32_t {
#else
typedef enum AiPlcPktType {
#endif
    OPUS_DECODED = 1,       ///< decoded from a received packet
    AIPLC_EXTRAPOLATE = 2,  ///< filled by the worker, no received frame after it
    AIPLC_INTERPOLATE = 3,  ///< filled by the worker, received frames after it
    PKT_LOST = 4,           ///< silent placeholder of a missing frame
    PKT_MUTE = 5,         ///< fresh node, start-up buffering, or faded out at the prediction limit
    OPUSPLC_PREDICT = 7,  ///< concealed by the codec
#ifdef __cplusplus
};
#else
} AiPlcPktType;
#endif

/// Inference mode of a frame: the loss pattern around it and who fills it.
enum AiPlcInferMode {
    AIPLC_INFER_NONE = 0,                 ///< no loss that is to be decided in this call
    AIPLC_INFER_GAP1_AHEAD2 = 1,          ///< one frame lost, two decoded frames after it
    AIPLC_INFER_GAP1_AHEAD1 = 2,          ///< one frame lost, one decoded frame after it
    AIPLC_INFER_GAP2_AHEAD2 = 3,          ///< two frames lost, two decoded frames after them
    AIPLC_INFER_GAP2_AHEAD1 = 4,          ///< two frames lost, one decoded frame after them
    AIPLC_INFER_BURST = 5,                ///< three or more lost: extrapolation
    AIPLC_INFER_GAP1_AHEAD2_OPUSPLC = 7,  ///< the pattern of mode 1, left to the codec
    AIPLC_INFER_GAP1_AHEAD1_OPUSPLC = 8,  ///< the pattern of mode 2, left to the codec
};

/// One 20 ms frame. The payload lies in the same allocation, directly behind the fields.
typedef struct AiPlcPkt {
    int16_t *samples;           ///< the payload; ring nodes hold 960 samples
    uint16_t sampleCount;       ///< samples in use
    enum AiPlcPktType pktType;  ///< the origin of the audio
    uint32_t isOutput;          ///< 1 once AiPlcProcess took the frame as the one to play
    uint32_t seqNumber;         ///< low 16 bits meaningful, arithmetic modulo 65536
    uint32_t bandwidth;  ///< codec bandwidth code, 1101 = narrowband; 0 = made by the library
    /// The bands of the audio, lowest first. At 16 kHz only bands[0] is used.
    int16_t bands[AIPLC_BANDS][AIPLC_BAND_SAMPLES];
    uint16_t hasNextPredict;    ///< 1: the channel's nextPredict predicts the frame after this one
    uint16_t inferMode;         ///< AiPlcInferMode that decided this frame
    uint16_t fusedIntoPredict;  ///< 1: cross-faded from codec audio into worker audio
    uint16_t fusedFromPredict;  ///< 1: cross-faded from worker audio into the codec's concealment
    uint16_t opusPlcApplied;    ///< 1: audio replaced by the codec's own output
    float inferTimeMs;          ///< wall time of the request made while this was the output frame
    uint16_t inferFailed;       ///< 1: that request failed
    struct AiPlcPkt *next;      ///< the newer frame of the ring
    struct AiPlcPkt *prev;      ///< the older frame of the ring
} AiPlcPkt;

/// A circle of nodes built once and never relinked; the owner moves the head.
typedef struct AiPlcRingList {
    AiPlcPkt *head;  ///< the node in use, the newest one in a ring that runs with time
    uint16_t count;  ///< nodes
} AiPlcRingList;

/// Length of the channel's named fields on this ABI; the rest of the 15200 bytes is reserved.
#define AIPLC_CHANNEL_FIELD_BYTES (sizeof(void *) == 8 ? 4482 : 4410)

/// State of one channel, in a block of 15200 bytes that the host provides and owns. Rings and
/// adapter belong to the library, from AiPlcAsyncInit to AiPlcAsyncDestroy. One thread at a time.
typedef struct StAiPlcChannel {
    int16_t sEnableAIPLC;         ///< 1 = AI path on; 0 after the worker could not be started
    uint32_t frameMs;             ///< 20
    uint32_t frameSamples;        ///< 960 after AiPlcAsyncInit; a 16 kHz host writes 320
    AiPlcRingList *receivedRing;  ///< 8 nodes: this call's received frames
    AiPlcRingList *outputRing;    ///< 8 nodes: the head is the frame to play
    AiPlcRingList *inputRing;  ///< 12 nodes: this call's frames and gap placeholders, newest first
    AiPlcRingList *historyRing;  ///< 12 nodes: one per frame, head = newest
    AiPlcRingList *opusRing;     ///< 8 nodes: the codec's own output per frame, head = newest
    uint16_t receivedCount;      ///< frames in receivedRing from the last call with packets
    uint16_t bufferedFrames;     ///< calls with packets absorbed at start-up, 0..bufferTarget
    uint16_t bufferTarget;       ///< 3
    uint32_t is48K;              ///< written by the host: 1 = 48 kHz, any other value = 16 kHz
    /// 1 when the last frame hit the prediction limit (120 ms); a call with packets clears it
    /// first.
    uint16_t predictLimitHit;
    int32_t lastInferMode;  ///< AiPlcInferMode of the last decision
    /// The worker's prediction of the newest frame of a burst's window, 16 kHz (at 48 kHz the low
    /// band). That frame was not judged yet and keeps its own audio. The prediction is low-passed
    /// in place at 16 kHz when the stream is narrowband, and stays until the next burst is
    /// predicted.
    int16_t nextPredict[AIPLC_BAND_SAMPLES];
    int16_t nextPredict48K[AIPLC_FRAME_SAMPLES_48K];   ///< nextPredict as heard at 48 kHz
    float postSynthesisMem[AIPLC_BANK_TAPS];           ///< bank, played frame, newest input first
    float inputAnalysisMem[AIPLC_BANK_TAPS];           ///< bank, received frames
    float opusSynthesisMem[AIPLC_BANK_TAPS];           ///< bank, codec's ring
    float opusAnalysisMem[AIPLC_BANK_TAPS];            ///< bank, codec's ring
    float postLowPassMem16K[AIPLC_LOW_PASS_TAPS_16K];  ///< narrowband low-pass, played frame
    float postLowPassMem48K[AIPLC_LOW_PASS_TAPS_48K];  ///< the same at 48 kHz
    float opusLowPassMem16K[AIPLC_LOW_PASS_TAPS_16K];  ///< narrowband low-pass, codec's ring
    float opusLowPassMem48K[AIPLC_LOW_PASS_TAPS_48K];  ///< the same at 48 kHz
    enum AiPlcPktType *judgeTypes[4];                  ///< types of judgeNodes
    AiPlcPkt *judgeNodes[4];         ///< the four frames last judged, output frame first
    AiPlcPkt *inferStart;            ///< newest node of the inference window
    float initTimeMs;                ///< time that AiPlcAsyncInit took, milliseconds
    AiplcAdapterInterface *adapter;  ///< null while the AI path is off
    int32_t inferHoldOff;            ///< frames left to the codec after a failed request, 0..6
    float inferTimeMs;               ///< last request, milliseconds
    uint16_t inferFailed;            ///< 1 when the last request failed
    /// Not used.
    uint8_t reserved[AIPLC_CHANNEL_BYTES - AIPLC_CHANNEL_FIELD_BYTES];
} StAiPlcChannel;

#ifdef __cplusplus
}
static_assert(sizeof(StAiPlcChannel) == AIPLC_CHANNEL_BYTES, "the channel block has 15200 bytes");
static_assert(sizeof(enum AiPlcPktType) == 4, "packet types have 32 bits");
#else
_Static_assert(sizeof(StAiPlcChannel) == AIPLC_CHANNEL_BYTES, "the channel block has 15200 bytes");
_Static_assert(sizeof(enum AiPlcPktType) == 4,
               "packet types have 32 bits: compile the host without -fshort-enums");
#endif

#endif
