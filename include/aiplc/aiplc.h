// SPDX-License-Identifier: BSD-2-Clause
//
// libxanu_audiocore_aiplc: packet-loss concealment for Opus speech.
//
// A host decodes the Opus packets of a call and calls AiPlcApply once per 20 ms frame. Output runs
// three frames (60 ms) behind the newest frame. A lost frame is filled by a neural model in a
// worker process, within the frame, or by the codec's own concealment.
//
// Calling order for a channel, on one thread at a time:
//   AiplcRegLog (optional, once per process), AiPlcCreate, AiPlcAsyncInit, write is48K (and
//   frameSamples 320 for 16 kHz), AiPlcApply every 20 ms, AiPlcAsyncDestroy.
//
// PCM is mono signed 16-bit; a frame has 320 samples at 16 kHz and 960 at 48 kHz. Functions that
// report success return 0 and small negative codes on failure:
//   -1  null or invalid argument, missing ring or node, host callback failure
//   -4  the worker adapter could not be allocated      -6  a copy or an inference request failed
//   -8  the ring lists could not be built              -14 the worker could not be started
//   -15 the worker did not complete its hand-shake     -16 the worker reported a time-out
//   -17 the previous inference had not finished
// No function throws. This header compiles as C11 and as C++20.

#ifndef AIPLC_AIPLC_H
#define AIPLC_AIPLC_H

#include <stdint.h>

#if defined(_WIN32)
#if defined(AIPLC_BUILDING)
#define AIPLC_EXPORT __declspec(dllexport)
#else
#define AIPLC_EXPORT __declspec(dllimport)
#endif
#else
#define AIPLC_EXPORT __attribute__((visibility("default")))
#endif

#define AIPLC_FRAME_SAMPLES_16K 320
#define AIPLC_FRAME_SAMPLES_48K 960
#define AIPLC_BANDS 3
#define AIPLC_BAND_SAMPLES 320
#define AIPLC_WINDOW_FRAMES 8
#define AIPLC_WINDOW_SAMPLES 2560  // 8 frames of 320
#define AIPLC_BANK_TAPS 48
#define AIPLC_LOW_PASS_TAPS_16K 31
#define AIPLC_LOW_PASS_TAPS_48K 91
#define AIPLC_BANDWIDTH_NARROWBAND 1101  // OPUS_BANDWIDTH_NARROWBAND
#define AIPLC_CHANNEL_BYTES 15200
#define AIPLC_MAX_STREAMS 8

#ifdef __cplusplus
class AiplcAdapterInterface;
extern "C" {
#else
typedef struct AiplcAdapterInterface AiplcAdapterInterface;
#endif

// What a frame is.
#ifdef __cplusplus
enum AiPlcPktType : uint32_t {
#else
typedef enum AiPlcPktType {
#endif
    OPUS_DECODED = 1,       // decoded from a received packet
    AIPLC_EXTRAPOLATE = 2,  // filled by the worker, no received frame after it
    AIPLC_INTERPOLATE = 3,  // filled by the worker, received frames after it
    PKT_LOST = 4,           // silent placeholder of a missing frame
    PKT_MUTE = 5,           // fresh node, start-up buffering, or faded out at the prediction limit
    OPUSPLC_PREDICT = 7,    // concealed by the codec
#ifdef __cplusplus
};
#else
} AiPlcPktType;
#endif

// Inference mode of a frame: the loss pattern around it and who fills it.
enum AiPlcInferMode {
    AIPLC_INFER_NONE = 0,
    AIPLC_INFER_GAP1_AHEAD2 = 1,  // one frame lost, two decoded frames after it
    AIPLC_INFER_GAP1_AHEAD1 = 2,  // one frame lost, one decoded frame after it
    AIPLC_INFER_GAP2_AHEAD2 = 3,  // two frames lost, two decoded frames after them
    AIPLC_INFER_GAP2_AHEAD1 = 4,  // two frames lost, one decoded frame after them
    AIPLC_INFER_BURST = 5,        // three or more lost: extrapolation
    AIPLC_INFER_GAP1_AHEAD2_OPUSPLC = 7,
    AIPLC_INFER_GAP1_AHEAD1_OPUSPLC = 8,
};

// One 20 ms frame. The payload lies in the same allocation, directly behind the fields.
typedef struct AiPlcPkt {
    int16_t *samples;      // the payload; ring nodes hold 960 samples
    uint16_t sampleCount;  // samples in use
    enum AiPlcPktType pktType;
    uint32_t isOutput;   // 1 once AiPlcProcess took the frame as the one to play
    uint32_t seqNumber;  // low 16 bits meaningful, arithmetic modulo 65536
    uint32_t bandwidth;  // codec bandwidth code, 1101 = narrowband; 0 = made by the library
    int16_t bands[AIPLC_BANDS]
                 [AIPLC_BAND_SAMPLES];  // 0-8, 8-16, 16-24 kHz; at 16 kHz bands[0] only
    uint16_t hasNextPredict;    // 1: the channel's nextPredict predicts the frame after this one
    uint16_t inferMode;         // AiPlcInferMode that decided this frame
    uint16_t fusedIntoPredict;  // 1: cross-faded from codec audio into worker audio
    uint16_t fusedFromPredict;  // 1: cross-faded from worker audio into the codec's concealment
    uint16_t opusPlcApplied;    // 1: audio replaced by the codec's own output
    float inferTimeMs;          // wall time of the request made while this was the output frame
    uint16_t inferFailed;       // 1: that request failed
    struct AiPlcPkt *next;      // the newer frame of the ring
    struct AiPlcPkt *prev;      // the older frame of the ring
} AiPlcPkt;

// A circle of nodes built once and never relinked; the owner moves the head.
typedef struct AiPlcRingList {
    AiPlcPkt *head;
    uint16_t count;
} AiPlcRingList;

// Length of the channel's named fields on this ABI; the rest of the 15200 bytes is reserved.
#define AIPLC_CHANNEL_FIELD_BYTES (sizeof(void *) == 8 ? 4482 : 4410)

// State of one concealment channel in a 15200-byte block that the host provides and owns. Rings and
// adapter belong to the library, from AiPlcAsyncInit to AiPlcAsyncDestroy. One thread at a time.
typedef struct StAiPlcChannel {
    int16_t sEnableAIPLC;         // 1 = AI path on; 0 after the worker could not be started
    uint32_t frameMs;             // 20
    uint32_t frameSamples;        // 960 after AiPlcAsyncInit; a 16 kHz host writes 320
    AiPlcRingList *receivedRing;  // 8 nodes: this call's received frames
    AiPlcRingList *outputRing;    // 8 nodes: the head is the frame to play
    AiPlcRingList *inputRing;     // 12 nodes: this call's frames and gap placeholders, newest first
    AiPlcRingList *historyRing;   // 12 nodes: one per frame, head = newest
    AiPlcRingList *opusRing;      // 8 nodes: the codec's own output per frame, head = newest
    uint16_t receivedCount;       // frames in receivedRing from the last call with packets
    uint16_t bufferedFrames;      // calls with packets absorbed at start-up, 0..bufferTarget
    uint16_t bufferTarget;        // 3
    uint32_t is48K;               // written by the host: 1 = 48 kHz, any other value = 16 kHz
    // 1 when the last frame hit the prediction limit (120 ms); a call with packets clears it first.
    uint16_t predictLimitHit;
    int32_t lastInferMode;  // AiPlcInferMode of the last decision
    // The worker's prediction of the newest frame of a burst's window, 16 kHz (at 48 kHz the low
    // band). That frame was not judged yet and keeps its own audio. The prediction is low-passed in
    // place at 16 kHz when the stream is narrowband, and stays until the next burst is predicted.
    int16_t nextPredict[AIPLC_BAND_SAMPLES];
    int16_t nextPredict48K[AIPLC_FRAME_SAMPLES_48K];  // nextPredict as heard at 48 kHz
    float postSynthesisMem[AIPLC_BANK_TAPS];
    float inputAnalysisMem[AIPLC_BANK_TAPS];
    float opusSynthesisMem[AIPLC_BANK_TAPS];
    float opusAnalysisMem[AIPLC_BANK_TAPS];
    float postLowPassMem16K[AIPLC_LOW_PASS_TAPS_16K];
    float postLowPassMem48K[AIPLC_LOW_PASS_TAPS_48K];
    float opusLowPassMem16K[AIPLC_LOW_PASS_TAPS_16K];
    float opusLowPassMem48K[AIPLC_LOW_PASS_TAPS_48K];
    enum AiPlcPktType *judgeTypes[4];  // types of judgeNodes
    AiPlcPkt *judgeNodes[4];           // the four frames last judged, output frame first
    AiPlcPkt *inferStart;              // newest node of the inference window
    float initTimeMs;
    AiplcAdapterInterface *adapter;  // null while the AI path is off
    int32_t inferHoldOff;            // frames left to the codec after a failed request, 0..6
    float inferTimeMs;               // last request, milliseconds
    uint16_t inferFailed;            // 1 when the last request failed
    uint8_t reserved[AIPLC_CHANNEL_BYTES - AIPLC_CHANNEL_FIELD_BYTES];
} StAiPlcChannel;

// Request for one frame of the codec's own concealment.
typedef struct AiPlcDecodeRequest {
    uint8_t decoderTag;      // copy of the host record's
    uint32_t plcFlag;        // 1
    int16_t *pcmOut;         // room for 960 samples
    uint16_t pcmOutSamples;  // set by the host: samples written, at most 960
} AiPlcDecodeRequest;

// Conceals one frame with the codec. userArg is AiPlcApply's. Returns 0 on success. After any other
// result AiPlcApply returns -1 and appends nothing, with opusPlcRequests counted and opusRing
// moved.
typedef int32_t (*AiPlcDecodeLostFunc)(uint32_t userArg, AiPlcDecodeRequest *request);

// Per-stream positions in the host's buffers; all buffers are the host's. "Samples" are 16 bits.
//
// In: a call that takes packets adds one frame (2 * frameSamples bytes) to inReadPos for each of
// packetCount slots, and inAvailable becomes (inEndPos - inReadPos) / 2, cut to 16 bits. The
// library computes with inReadPos and inEndPos but never reads through them, and never changes
// inEndPos. A call that conceals because of inAvailable changes no field of the input.
//
// pktCursor walks packet records of 16-bit little-endian words:
//   word 0 lengthWords (whole record, header included), word 1 sequence number,
//   words 2-3 bandwidth code, then lengthWords - 4 samples of decoded PCM.
// One frame (frameSamples samples) is read from each record, whatever its length, and pktCursor and
// pktWordsLeft move past the record. A record that does not lie within pktWordsLeft, or has no
// sample, is logged and ends the reading of the call.
//
// Out: each frame is appended at outWrite. Fewer than 11520 bytes between outWrite and outEnd make
// AiPlcApply compact the area first: it moves outPending samples and 20 ms more from outRead to
// outBase, sets outRead to outBase and outWrite behind what it moved. So the host reads both
// positions again after each call, and it either
//   - takes everything after each call and sets outRead = outWrite = outBase and outPending = 0 (an
//     area of 11520 bytes or more is then never compacted), or
//   - keeps outRead 20 ms in front of the first sample not yet taken, from the beginning on
//     (outWrite = outRead + 20 ms in an empty area), and subtracts what it takes from outPending.
// A host whose outRead is the first sample not yet taken finds 20 ms of stale audio there after a
// compaction. An area without room for what must be kept is logged and left as it is; a frame that
// then does not fit behind outWrite is logged and dropped: outWrite and outPending stay.
typedef struct AiPlcHostStream {
    uint8_t *inReadPos;
    uint8_t *inEndPos;
    uint16_t inAvailable;   // decoded samples; 0 or no whole number of frames: conceal
    uint16_t *pktCursor;    // next packet record
    uint16_t pktWordsLeft;  // 16-bit words from pktCursor on
    uint8_t *outBase;       // start of the output area
    uint8_t *outEnd;        // end of the output area
    uint8_t *outRead;       // moved by the host, and by AiPlcApply when it compacts
    uint8_t *outWrite;      // the next frame is appended here; moved by AiPlcApply
    uint16_t outPending;    // samples appended and not yet taken; the host subtracts what it takes
} AiPlcHostStream;

// The samples appended by calls that conceal are added to one of the two counters.
typedef struct AiPlcHostStats {
    uint32_t concealedSamples;
    uint32_t concealedSamplesAlt;
    uint16_t counterMode;  // 1: always count in concealedSamples
    uint32_t sampleRate;   // Hz; gives the 20 ms kept when the output area is compacted
} AiPlcHostStats;

// The host's decoder record: read and updated by AiPlcApply, owned by the host.
typedef struct AiPlcHostContext {
    uint8_t decoderTag;
    uint32_t altCounterSelect;  // non-zero with counterMode != 1: count in concealedSamplesAlt
    uint32_t samplesOut;        // the library adds the samples it appends
    uint32_t opusPlcRequests;   // the library adds 1 for each frame it has the codec conceal
    AiPlcHostStream streams[AIPLC_MAX_STREAMS];
    AiPlcHostStats *stats;
    AiPlcDecodeLostFunc decodeLost;
    StAiPlcChannel *channel;
    int32_t packetCount;  // packet slots to take this call, 1 to 8; not read when inAvailable is 0
} AiPlcHostContext;

// Receives every log line. format is always "[AUDIO_AIPLC] %s" with the finished text as its one
// argument. Called on the thread that drives the channel, the audio thread included.
typedef void (*AiplcLogFunc)(const char *sourceUnit, int32_t line, const char *format, ...);

typedef void (*AiPlcInferModeHandler)(StAiPlcChannel *channel, int32_t *mode);

// ---- Channel, frame driver ----------------------------------------------------------------------

// Clears the 15200-byte block and stores its address through channel. A null block stores null.
// Returns 0 or -1.
AIPLC_EXPORT int32_t AiPlcCreate(StAiPlcChannel **channel, void *block);

// Resets the channel, builds its rings and, with enable 1, starts the worker (blocks up to 8 s at
// worst). A namespace has one worker: a second channel that starts one there takes it from the
// first. Returns 0, -1, -4, -8, -14 or -15; after -4, -14 and -15 the channel works without the AI
// path. A channel that still holds rings must be destroyed first.
//
// One namespace (environment variable AIPLC_NAMESPACE, read here) serves one channel with a worker,
// of one host: channels that share one get each other's audio, and the first to be destroyed takes
// the worker away from the others. Give each channel a name of its own while it is set up.
AIPLC_EXPORT int32_t AiPlcAsyncInit(StAiPlcChannel *channel, int16_t enable);

// Frees the rings and, where sEnableAIPLC is 1, tells the worker to quit and destroys the adapter.
// May be repeated. Returns 0 or -1.
AIPLC_EXPORT int32_t AiPlcAsyncDestroy(StAiPlcChannel *channel);

// Builds the five rings. Returns 0, -1 or -8 (nothing left allocated).
AIPLC_EXPORT int32_t AiPlcInitRingLists(StAiPlcChannel *channel);

// One 20 ms frame: takes the stream's decoded packets, or has the codec conceal when inAvailable is
// 0 or no whole number of frames, or when no packet record gives a frame. Appends the frame to play
// at outWrite, after compacting the output area if it runs out (see AiPlcHostStream). Blocks at
// most 26 ms, and only when the worker is late. Returns 0, or -1: a null or unusable record,
// decodeLost failed, or a call that conceals found no room for its frame. A call that takes packets
// returns 0 without room, too; outPending tells.
AIPLC_EXPORT int32_t AiPlcApply(AiPlcHostContext *host, uint32_t userArg, uint16_t stream);

// One step of the pipeline; received is the first of count consecutive received nodes, or null for
// a lost frame. *frames is set to 1 when output was written and else left alone: a lost frame
// during start-up buffering writes none. Returns 0 or -1.
AIPLC_EXPORT int32_t AiPlcProcess(StAiPlcChannel *channel, AiPlcPkt *received, uint16_t count,
                                  AiPlcPkt *output, uint16_t *frames);

// Conditions the newest codec frame (bank at 48 kHz, low-pass for narrowband); with advance
// non-zero the head of receivedRing is first taken over as the newest codec frame.
AIPLC_EXPORT void AiPlcMaintainOpusBuff(StAiPlcChannel *channel, uint32_t advance);

// 1 when the output frame and the five before it are all AIPLC_EXTRAPOLATE or PKT_LOST (120 ms),
// else 0.
AIPLC_EXPORT int32_t AiPlcCheckPredictLimit(StAiPlcChannel *channel);

// ---- Log ----------------------------------------------------------------------------------------

// Replaces the process-wide callback; null switches logging off. Call before frames run.
AIPLC_EXPORT void AiplcRegLog(AiplcLogFunc callback);

// Formats at most 1023 characters and hands them to the callback; a longer text is dropped.
AIPLC_EXPORT void AudAiplcLog(const char *sourceUnit, int32_t line, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

// ---- Nodes and rings ----------------------------------------------------------------------------

// Creates a node from byteCount bytes of PCM, stamped from the process-wide node counter. Null on a
// null pcm or a failed allocation. The caller frees it with AiPlcDestroyPkt.
AIPLC_EXPORT AiPlcPkt *AiPlcCreatePkt(const int16_t *pcm, uint32_t byteCount, uint32_t pktType);
AIPLC_EXPORT AiPlcPkt *AiPlcCreatePktSn(const int16_t *pcm, uint32_t byteCount, uint32_t pktType,
                                        uint16_t seqNumber, uint32_t bandwidth);

// Copies audio and fields, not the links. The samples are copied only where the destination's
// sampleCount is at least the source's; sampleCount itself is taken over in any case, so the
// destination's payload must hold as many. Returns 0, -1 or -6 (fields unchanged).
AIPLC_EXPORT int32_t AiPlcCopyPkt(AiPlcPkt *destination, const AiPlcPkt *source);
// Returns 0, or -1 for a null node or one without samples.
AIPLC_EXPORT int32_t AiPlcDestroyPkt(AiPlcPkt *node);

// A ring of count silent 960-sample nodes, freed with AiPlcDestroyRingList (which returns 0, or -1
// for null); null for 0 or no memory.
AIPLC_EXPORT AiPlcRingList *AiPlcInitRingList(uint16_t count);
AIPLC_EXPORT int32_t AiPlcDestroyRingList(AiPlcRingList *ring);

// ---- History ------------------------------------------------------------------------------------

// Position of the newest OPUS_DECODED frame: 1 (it is the newest of all) to 3, 4 = older; -1
// without a history.
AIPLC_EXPORT int32_t AiPlcCheckHisBuffStatus(StAiPlcChannel *channel);

// Advances the history by one lost frame. Like AiPlcUpdateInputBuff and AiPlcInitBuffering it needs
// a channel with its rings, unchecked.
AIPLC_EXPORT void AiPlcMaintainBuff(StAiPlcChannel *channel);

// Writes count received frames (received is the first, the others follow through next) into
// inputRing, newest first, with placeholders for the numbers missing between them; returns the
// number of frames and placeholders.
AIPLC_EXPORT int32_t AiPlcUpdateInputBuff(StAiPlcChannel *channel, AiPlcPkt *received,
                                          uint16_t count);

// Advances the history by one frame, received or (null) lost. Returns 0 or -1.
AIPLC_EXPORT int32_t AiPlcUpdateHisBuffStatus(StAiPlcChannel *channel, AiPlcPkt *received,
                                              uint16_t count);

// One start-up buffering step: the first received frame enters the history count times, output
// becomes silence. Nothing happens without a received frame.
AIPLC_EXPORT void AiPlcInitBuffering(StAiPlcChannel *channel, AiPlcPkt *received, uint16_t count,
                                     AiPlcPkt *output, uint16_t *frames);

// a - b across the 16-bit wrap, -32768 to 32768: positive when a is newer.
AIPLC_EXPORT int32_t AiPlcCalSeqNumberDif(uint16_t a, uint16_t b);

// ---- Signal processing --------------------------------------------------------------------------

// Truncates towards zero and saturates. Distinct buffers of count samples; 0 or fewer do nothing,
// here and wherever a count or length is signed.
AIPLC_EXPORT void AiPlcFloat2Short(const float *input, int16_t *output, int32_t count);
AIPLC_EXPORT void AiPlcShort2Float(const int16_t *input, float *output, int32_t count);

// Filters data in place. state holds the taps newest inputs, newest first, and carries over to the
// next call. Each output is summed in order of increasing tap, truncated and saturated.
AIPLC_EXPORT void AiPlcFir(int16_t *data, float *state, const float *coeff, int32_t length,
                           int32_t taps);

// 0 when all count buffers are allocated, else -1; a null table is -1.
AIPLC_EXPORT int32_t AiPlcCheckFloatMem(float **table, int32_t count);
// Frees the buffers of the table (from calloc) and nulls its entries.
AIPLC_EXPORT void AiPlcFreeFloatMem(float **table, int32_t count);
AIPLC_EXPORT void AiPlcSetZeros(int16_t *data, uint16_t count);

// Splits length samples into three band-major runs of length / 3, and joins them again. state: 48
// floats. Where length is no multiple of 3, the last one or two samples enter the analysis state
// only, and the synthesis gives 0 for them (its Proc form leaves them alone). The Proc forms
// work on the caller's buffers (work: length + 48 floats; bands: three of length / 3 + 16 floats);
// the others allocate, allow output == input and return 0 or -1 (state kept when memory is short).
AIPLC_EXPORT int32_t AiPlcThreeBandAnalysis(const float *input, float *output, float *state,
                                            int32_t length);
AIPLC_EXPORT void AiPlcThreeBandAnalysisProc(const float *input, float *state, float *work,
                                             float *output, int32_t length);
AIPLC_EXPORT int32_t AiPlcThreeBandSynthesis(const float *input, float *output, float *state,
                                             int32_t length);
AIPLC_EXPORT void AiPlcThreeBandSynthesisProc(const float *input, float *state, float **bands,
                                              float *output, int32_t length);

// Builds the node's PCM from its bands, by rate, low-passed where the node is narrowband. Where its
// hasNextPredict is 1, nextPredict is processed as its continuation, at 48 kHz into nextPredict48K,
// at 16 kHz in place.
AIPLC_EXPORT void AiPlcPostProc(StAiPlcChannel *channel, AiPlcPkt *node);
AIPLC_EXPORT void AiPlcPostProc16K(StAiPlcChannel *channel, AiPlcPkt *node);
AIPLC_EXPORT void AiPlcPostProc48K(StAiPlcChannel *channel, AiPlcPkt *node);

// Writes the frame to play: the node, the codec's concealment where the node asks for it, and a
// cross-fade at every switch between codec audio and prediction.
AIPLC_EXPORT void AiPlcOpusFallBack(StAiPlcChannel *channel, AiPlcPkt *node, AiPlcPkt *output);

// Fades outgoing into incoming, which receives the result. window: 2 * length floats.
AIPLC_EXPORT void AiPlcFuseSmooth(const int16_t *outgoing, int16_t *incoming, const float *window,
                                  int32_t length);
// Fades outgoing, which receives the result, into incoming. length must be 960. Returns 0 or -1.
AIPLC_EXPORT int32_t AiPlcWinSmoothing(const int16_t *incoming, int16_t *outgoing, uint16_t length);
// Fade one block of 320 samples in place.
AIPLC_EXPORT void AiPlc16kFadeOut(int16_t *block);
AIPLC_EXPORT void AiPlc16kFadeIn(int16_t *block);

// ---- Inference ----------------------------------------------------------------------------------

// The per-frame decision: who fills the output frame if it was lost. Returns the AiPlcInferMode.
AIPLC_EXPORT int32_t AiPlcAsyncInferJudge(StAiPlcChannel *channel);
// The decision without fades, request and what follows from them: retypes the lost frames, sets
// inferStart and inferMode and keeps the hold-off.
AIPLC_EXPORT int32_t AiPlcGetInferMode(StAiPlcChannel *channel);
// The handler of the pattern of four types, output frame first; null when the output frame is not
// lost or no mode has the pattern.
AIPLC_EXPORT AiPlcInferModeHandler AiPlcGetInferModeHandler(enum AiPlcPktType **types);
AIPLC_EXPORT void AiPlcHandleInferMode1(StAiPlcChannel *channel, int32_t *mode);
AIPLC_EXPORT void AiPlcHandleInferMode2(StAiPlcChannel *channel, int32_t *mode);
AIPLC_EXPORT void AiPlcHandleInferMode3(StAiPlcChannel *channel, int32_t *mode);
AIPLC_EXPORT void AiPlcHandleInferMode4(StAiPlcChannel *channel, int32_t *mode);
AIPLC_EXPORT void AiPlcHandleInferMode5(StAiPlcChannel *channel, int32_t *mode);

// One request of 2560 samples (eight 16 kHz frames, oldest first). Returns 0, -6, -16 or -17.
AIPLC_EXPORT int32_t AiPlcAsyncInfer(StAiPlcChannel *channel, const int16_t *audioIn,
                                     int16_t *audioOut, uint16_t inferArg);
// Requests the window that ends at inferStart and writes the prediction back, or hands the frames
// to the codec and starts the hold-off.
AIPLC_EXPORT void AiPlcGetInferResult(StAiPlcChannel *channel, int32_t mode);
// Monotonic microseconds; only differences have a meaning.
AIPLC_EXPORT uint64_t AiPlcGetTimeUs(void);

// ---- Tables -------------------------------------------------------------------------------------

AIPLC_EXPORT extern const float g_aiplcLowPassCoeff16K[AIPLC_LOW_PASS_TAPS_16K];
AIPLC_EXPORT extern const float g_aiplcLowPassCoeff48K[AIPLC_LOW_PASS_TAPS_48K];
AIPLC_EXPORT extern const float g_aiplcDelayFilterCoeff_16k[AIPLC_LOW_PASS_TAPS_16K];
AIPLC_EXPORT extern const float g_aiplcDelayFilterCoeff_48k[AIPLC_LOW_PASS_TAPS_48K];
AIPLC_EXPORT extern const float g_aiplcTriangWin16K[2 * AIPLC_FRAME_SAMPLES_16K];
AIPLC_EXPORT extern const float g_aiplcTriangWin48K[2 * AIPLC_FRAME_SAMPLES_48K];

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
