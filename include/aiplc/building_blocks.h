// SPDX-License-Identifier: BSD-2-Clause

/// @file
/// The parts that the calls of aiplc.h are made of, for tests and for hosts that do more than those
/// calls. All work on one channel at a time, on the thread that drives it.

#ifndef AIPLC_BUILDING_BLOCKS_H
#define AIPLC_BUILDING_BLOCKS_H

#include <aiplc/channel.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Handles one pattern of losses: writes the mode that it decides through mode.
typedef void (*AiPlcInferModeHandler)(StAiPlcChannel *channel, int32_t *mode);

// ---- Frame driver -------------------------------------------------------------------------------

/// Builds the five rings of a channel.
///
/// @return 0; -1 for a null channel; -8 without memory, then nothing stays allocated
AIPLC_EXPORT int32_t AiPlcInitRingLists(StAiPlcChannel *channel);

/// Runs one frame through the pipeline.
///
/// @param channel with its rings
/// @param received the first of count received nodes that are linked through next; null for a lost
///        frame
/// @param count received nodes, 0 to 8
/// @param output receives the frame to play
/// @param frames set to 1 when output was written and else left alone: a lost frame during start-up
///        buffering writes none
/// @return 0 or -1
AIPLC_EXPORT int32_t AiPlcProcess(StAiPlcChannel *channel, AiPlcPkt *received, uint16_t count,
                                  AiPlcPkt *output, uint16_t *frames);

/// Prepares the newest frame of the codec's ring: splits it into bands at 48 kHz, low-passes it
/// where it is narrowband.
///
/// @param channel with its rings
/// @param advance non-zero: the head of receivedRing is first taken over as the newest codec frame
AIPLC_EXPORT void AiPlcMaintainOpusBuff(StAiPlcChannel *channel, uint32_t advance);

/// Tells whether the prediction limit is reached.
///
/// @return 1 when the output frame and the five before it (120 ms) are all AIPLC_EXTRAPOLATE or
///         PKT_LOST, else 0
AIPLC_EXPORT int32_t AiPlcCheckPredictLimit(StAiPlcChannel *channel);

// ---- Log ----------------------------------------------------------------------------------------

/// Formats a line and hands it to the log function of the process.
///
/// @param sourceUnit name of the unit that logs
/// @param line its line
/// @param format as for printf; a text of more than 1023 characters is dropped
AIPLC_EXPORT void AudAiplcLog(const char *sourceUnit, int32_t line, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

// ---- Nodes and rings ----------------------------------------------------------------------------

/// Creates a node. The caller owns it and frees it with AiPlcDestroyPkt.
///
/// @param pcm the samples, which are copied
/// @param byteCount their bytes
/// @param pktType an AiPlcPktType
/// @return a node whose sequence number comes from the process-wide counter; null for a null pcm or
///         without memory
AIPLC_EXPORT AiPlcPkt *AiPlcCreatePkt(const int16_t *pcm, uint32_t byteCount, uint32_t pktType);

/// As AiPlcCreatePkt, with the sequence number and the bandwidth code given.
AIPLC_EXPORT AiPlcPkt *AiPlcCreatePktSn(const int16_t *pcm, uint32_t byteCount, uint32_t pktType,
                                        uint16_t seqNumber, uint32_t bandwidth);

/// Copies audio and fields, not the links.
///
/// @param destination its payload must hold the source's sampleCount, which is always taken over.
/// The
///        samples themselves are copied only where its sampleCount was at least the source's.
/// @param source the node to copy
/// @return 0, -1 for a null node, or -6, then all fields are as before
AIPLC_EXPORT int32_t AiPlcCopyPkt(AiPlcPkt *destination, const AiPlcPkt *source);

/// Frees a node.
///
/// @return 0, or -1 for a null node or one without samples
AIPLC_EXPORT int32_t AiPlcDestroyPkt(AiPlcPkt *node);

/// Makes a ring of silent nodes of 960 samples. The caller owns it and frees it with
/// AiPlcDestroyRingList.
///
/// @param count nodes
/// @return the ring; null for 0 nodes or without memory
AIPLC_EXPORT AiPlcRingList *AiPlcInitRingList(uint16_t count);

/// Frees a ring and its nodes.
///
/// @return 0, or -1 for a null ring or one without a head
AIPLC_EXPORT int32_t AiPlcDestroyRingList(AiPlcRingList *ring);

// ---- History ------------------------------------------------------------------------------------

/// Finds the newest OPUS_DECODED frame of the history.
///
/// @return 1 when it is the newest frame, 2 or 3 one or two frames before that, 4 when it is older,
///         -1 without a history
AIPLC_EXPORT int32_t AiPlcCheckHisBuffStatus(StAiPlcChannel *channel);

/// Advances the history by one lost frame.
///
/// @param channel must have its rings, which is not checked
AIPLC_EXPORT void AiPlcMaintainBuff(StAiPlcChannel *channel);

/// Sorts received frames into inputRing, newest first, with placeholders for the sequence numbers
/// that are missing between them.
///
/// @param channel must have its rings, which is not checked
/// @param received the first node; the others follow through next
/// @param count received nodes; with placeholders at most 12 fit
/// @return the number of frames and placeholders
AIPLC_EXPORT int32_t AiPlcUpdateInputBuff(StAiPlcChannel *channel, AiPlcPkt *received,
                                          uint16_t count);

/// Advances the history by one frame.
///
/// @param channel with its rings
/// @param received the first of count received nodes, or null for a lost frame
/// @param count received nodes
/// @return 0, or -1 for a missing channel or ring
AIPLC_EXPORT int32_t AiPlcUpdateHisBuffStatus(StAiPlcChannel *channel, AiPlcPkt *received,
                                              uint16_t count);

/// Runs one step of the buffering with which a call begins: the first received frame enters the
/// history count times, and output becomes silence. Nothing happens without a received frame.
///
/// @param channel must have its rings, which is not checked
/// @param received the first of count received nodes, or null
/// @param count received nodes
/// @param output receives 20 ms of silence
/// @param frames set to 1 when output was written
AIPLC_EXPORT void AiPlcInitBuffering(StAiPlcChannel *channel, AiPlcPkt *received, uint16_t count,
                                     AiPlcPkt *output, uint16_t *frames);

/// Distance of two sequence numbers of 16 bits, across their wrap.
///
/// @return a - b, from -32768 to 32768: positive when a is newer
AIPLC_EXPORT int32_t AiPlcCalSeqNumberDif(uint16_t a, uint16_t b);

// ---- Signal processing --------------------------------------------------------------------------
//
// A count or length of 0 or less does nothing.

/// Converts to 16 bits: truncates towards zero and saturates.
///
/// @param input count samples in steps of 16 bits; must not overlap output
/// @param output count samples
/// @param count samples
AIPLC_EXPORT void AiPlcFloat2Short(const float *input, int16_t *output, int32_t count);

/// Converts from 16 bits, exactly. The buffers must not overlap.
AIPLC_EXPORT void AiPlcShort2Float(const int16_t *input, float *output, int32_t count);

/// Filters samples in place. Each output is summed in the order of increasing taps, truncated and
/// saturated.
///
/// @param data length samples
/// @param state the taps newest inputs, newest first; carries over to the next call
/// @param coeff taps coefficients
/// @param length samples
/// @param taps coefficients
AIPLC_EXPORT void AiPlcFir(int16_t *data, float *state, const float *coeff, int32_t length,
                           int32_t taps);

/// Checks that buffers were allocated.
///
/// @return 0 when none of the table's count buffers is null, else -1; -1 for a null table
AIPLC_EXPORT int32_t AiPlcCheckFloatMem(float **table, int32_t count);

/// Frees the buffers of a table, which must come from calloc, and nulls its entries.
AIPLC_EXPORT void AiPlcFreeFloatMem(float **table, int32_t count);

/// Sets count samples to zero.
AIPLC_EXPORT void AiPlcSetZeros(int16_t *data, uint16_t count);

/// Splits samples at 48 kHz into three bands at 16 kHz. Allocates while it runs.
///
/// @param input length samples
/// @param output three runs of length / 3 samples, the lowest band first; may be input
/// @param state 48 floats, carried over to the next call; kept when memory is short
/// @param length samples. Where it is no multiple of 3, the last one or two samples enter the state
///        only.
/// @return 0, or -1 without memory
AIPLC_EXPORT int32_t AiPlcThreeBandAnalysis(const float *input, float *output, float *state,
                                            int32_t length);

/// As AiPlcThreeBandAnalysis, without an allocation.
///
/// @param input length samples
/// @param state 48 floats
/// @param work length + 48 floats of scratch memory
/// @param output three runs of length / 3 samples
/// @param length samples
AIPLC_EXPORT void AiPlcThreeBandAnalysisProc(const float *input, float *state, float *work,
                                             float *output, int32_t length);

/// Joins three bands at 16 kHz to samples at 48 kHz. Allocates while it runs.
///
/// @param input three runs of length / 3 samples, the lowest band first
/// @param output length samples; may be input. Where length is no multiple of 3, the last one or
/// two
///        are 0.
/// @param state 48 floats, carried over to the next call; kept when memory is short
/// @param length samples
/// @return 0, or -1 without memory
AIPLC_EXPORT int32_t AiPlcThreeBandSynthesis(const float *input, float *output, float *state,
                                             int32_t length);

/// As AiPlcThreeBandSynthesis, without an allocation.
///
/// @param input three runs of length / 3 samples
/// @param state 48 floats
/// @param bands three buffers of length / 3 + 16 floats of scratch memory
/// @param output length samples; where length is no multiple of 3, the last one or two stay as they
///        are
/// @param length samples
AIPLC_EXPORT void AiPlcThreeBandSynthesisProc(const float *input, float *state, float **bands,
                                              float *output, int32_t length);

/// Builds a node's PCM from its bands, by the channel's rate, low-passed where the node is
/// narrowband. Where its hasNextPredict is 1, nextPredict is processed as its continuation: at 48
/// kHz into nextPredict48K, at 16 kHz in place.
AIPLC_EXPORT void AiPlcPostProc(StAiPlcChannel *channel, AiPlcPkt *node);

/// The half of AiPlcPostProc for 16 kHz.
AIPLC_EXPORT void AiPlcPostProc16K(StAiPlcChannel *channel, AiPlcPkt *node);

/// The half of AiPlcPostProc for 48 kHz.
AIPLC_EXPORT void AiPlcPostProc48K(StAiPlcChannel *channel, AiPlcPkt *node);

/// Writes the frame to play: the node's audio, or the codec's concealment where the node asks for
/// it, with a cross-fade at every change between codec audio and prediction.
AIPLC_EXPORT void AiPlcOpusFallBack(StAiPlcChannel *channel, AiPlcPkt *node, AiPlcPkt *output);

/// Cross-fades two signals.
///
/// @param outgoing length samples that become quieter
/// @param incoming length samples that become louder; receives the sum
/// @param window 2 * length gains, those of incoming first
/// @param length samples
AIPLC_EXPORT void AiPlcFuseSmooth(const int16_t *outgoing, int16_t *incoming, const float *window,
                                  int32_t length);

/// Cross-fades two signals of 960 samples.
///
/// @param incoming becomes louder
/// @param outgoing becomes quieter; receives the sum
/// @param length 960
/// @return 0, or -1 for a null buffer or another length
AIPLC_EXPORT int32_t AiPlcWinSmoothing(const int16_t *incoming, int16_t *outgoing, uint16_t length);

/// Fades one block of 320 samples out, in place.
AIPLC_EXPORT void AiPlc16kFadeOut(int16_t *block);

/// Fades one block of 320 samples in, in place.
AIPLC_EXPORT void AiPlc16kFadeIn(int16_t *block);

// ---- Inference ----------------------------------------------------------------------------------

/// Decides who fills the output frame if it was lost, and makes the request.
///
/// @return an AiPlcInferMode
AIPLC_EXPORT int32_t AiPlcAsyncInferJudge(StAiPlcChannel *channel);

/// The decision of AiPlcAsyncInferJudge without fades and request: changes the types of the lost
/// frames, sets inferStart and inferMode, and counts the hold-off.
///
/// @return an AiPlcInferMode
AIPLC_EXPORT int32_t AiPlcGetInferMode(StAiPlcChannel *channel);

/// Finds the handler of a pattern of losses.
///
/// @param types four types, that of the output frame first
/// @return null when the output frame is not lost or no mode has the pattern
AIPLC_EXPORT AiPlcInferModeHandler AiPlcGetInferModeHandler(enum AiPlcPktType **types);

/// Handles one lost frame before two decoded ones: mode 1, or 7 when the codec fills it.
AIPLC_EXPORT void AiPlcHandleInferMode1(StAiPlcChannel *channel, int32_t *mode);

/// Handles one lost frame before one decoded one: mode 2, or 8 when the codec fills it.
AIPLC_EXPORT void AiPlcHandleInferMode2(StAiPlcChannel *channel, int32_t *mode);

/// Handles two lost frames before two decoded ones.
AIPLC_EXPORT void AiPlcHandleInferMode3(StAiPlcChannel *channel, int32_t *mode);

/// Handles two lost frames before one decoded one.
AIPLC_EXPORT void AiPlcHandleInferMode4(StAiPlcChannel *channel, int32_t *mode);

/// Handles three lost frames and more.
AIPLC_EXPORT void AiPlcHandleInferMode5(StAiPlcChannel *channel, int32_t *mode);

/// Asks the worker for one prediction. Blocks for at most 26 ms.
///
/// @param channel with an adapter
/// @param audioIn 2560 samples: eight frames of the low band at 16 kHz, oldest first, missing ones
/// 0
/// @param audioOut 2560 samples: the same frames with the missing ones filled
/// @param inferArg handed on to the worker
/// @return 0, AIPLC_E_FAILED, AIPLC_E_TIMED_OUT or AIPLC_E_BUSY
AIPLC_EXPORT int32_t AiPlcAsyncInfer(StAiPlcChannel *channel, const int16_t *audioIn,
                                     int16_t *audioOut, uint16_t inferArg);

/// Asks for the window that ends at inferStart and writes the prediction back, or hands the frames
/// to the codec and starts the hold-off.
AIPLC_EXPORT void AiPlcGetInferResult(StAiPlcChannel *channel, int32_t mode);

/// A clock that never goes back.
///
/// @return microseconds; only differences have a meaning
AIPLC_EXPORT uint64_t AiPlcGetTimeUs(void);

// ---- Tables -------------------------------------------------------------------------------------

/// Low-pass filter to 4 kHz for narrowband calls at 16 kHz.
AIPLC_EXPORT extern const float g_aiplcLowPassCoeff16K[AIPLC_LOW_PASS_TAPS_16K];
/// Low-pass filter to 4 kHz for narrowband calls at 48 kHz.
AIPLC_EXPORT extern const float g_aiplcLowPassCoeff48K[AIPLC_LOW_PASS_TAPS_48K];
/// Delays by as much as the low-pass filter at 16 kHz, for hosts; not used by the library.
AIPLC_EXPORT extern const float g_aiplcDelayFilterCoeff_16k[AIPLC_LOW_PASS_TAPS_16K];
/// Delays by as much as the low-pass filter at 48 kHz, for hosts; not used by the library.
AIPLC_EXPORT extern const float g_aiplcDelayFilterCoeff_48k[AIPLC_LOW_PASS_TAPS_48K];
/// Gains of a cross-fade of one frame at 16 kHz, for AiPlcFuseSmooth.
AIPLC_EXPORT extern const float g_aiplcTriangWin16K[2 * AIPLC_FRAME_SAMPLES_16K];
/// Gains of a cross-fade of one frame at 48 kHz, for AiPlcFuseSmooth.
AIPLC_EXPORT extern const float g_aiplcTriangWin48K[2 * AIPLC_FRAME_SAMPLES_48K];

#ifdef __cplusplus
}
#endif

#endif
