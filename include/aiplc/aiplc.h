// SPDX-License-Identifier: BSD-2-Clause

/// @file
/// libxanu_audiocore_aiplc: packet-loss concealment for Opus speech.
///
/// A host decodes the Opus packets of a call and calls AiPlcApply once per 20 ms frame. The output
/// runs three frames (60 ms) behind the newest frame. A lost frame is filled by a neural model in a
/// worker process, within the frame, or by the codec's own concealment.
///
/// The calls of a host, in this order, for each channel on one thread at a time:
///
///  1. AiplcRegLog, optional, once per process
///  2. AiPlcCreate
///  3. AiPlcAsyncInit; then write StAiPlcChannel::is48K = 1 for 48 kHz, or
///     StAiPlcChannel::frameSamples = 320 for 16 kHz
///  4. AiPlcApply every 20 ms
///  5. AiPlcAsyncDestroy
///
/// building_blocks.h declares the parts that these calls are made of.
///
/// PCM is mono and signed 16 bit; a frame has 320 samples at 16 kHz and 960 at 48 kHz. No function
/// throws. The header compiles as C11 and as C++20. The version's major number is that of the
/// shared library: programs built with one minor version run with every later one of the same major
/// version.

#ifndef AIPLC_AIPLC_H
#define AIPLC_AIPLC_H

#include <aiplc/channel.h>
#include <stdint.h>

#define AIPLC_VERSION_MAJOR 1  ///< changes when programs must be built anew
#define AIPLC_VERSION_MINOR 1  ///< changes with additions
#define AIPLC_VERSION_PATCH 0  ///< changes with corrections

/// Most streams that one host record holds.
#define AIPLC_MAX_STREAMS 8

#ifdef __cplusplus
extern "C" {
#endif

/// Results of the functions that report success. Functions return them as int32_t.
enum AiPlcResult {
    AIPLC_OK = 0,
    AIPLC_E_INVALID = -1,       ///< null or invalid argument, missing ring or node, failed callback
    AIPLC_E_NO_ADAPTER = -4,    ///< no memory for the connection to the worker
    AIPLC_E_FAILED = -6,        ///< a copy or a request failed
    AIPLC_E_NO_RINGS = -8,      ///< no memory for the rings
    AIPLC_E_NOT_STARTED = -14,  ///< the worker could not be started
    AIPLC_E_NO_ANSWER = -15,    ///< the worker did not complete its hand-shake
    AIPLC_E_TIMED_OUT = -16,    ///< the worker reported a time-out
    AIPLC_E_BUSY = -17,         ///< the previous request had not finished
};

/// Request for one frame of the codec's own concealment.
typedef struct AiPlcDecodeRequest {
    uint8_t decoderTag;      ///< copy of AiPlcHostContext::decoderTag
    uint32_t plcFlag;        ///< 1
    int16_t *pcmOut;         ///< room for 960 samples, owned by the library
    uint16_t pcmOutSamples;  ///< set by the host: samples written, at most 960
} AiPlcDecodeRequest;

/// Conceals one frame with the codec. The library calls it from AiPlcApply, on that call's thread.
///
/// @param userArg the second argument of that AiPlcApply
/// @param request where the frame goes; valid until the function returns
/// @return 0 on success. After any other result AiPlcApply returns -1 and appends nothing; the
///         request stays counted in AiPlcHostContext::opusPlcRequests, and the codec's ring has
///         moved on by one frame.
typedef int32_t (*AiPlcDecodeLostFunc)(uint32_t userArg, AiPlcDecodeRequest *request);

/// Positions of one stream in the host's buffers. The host owns all buffers. A sample has 16 bits.
///
/// **Input.** A call that takes packets adds one frame (2 * frameSamples bytes) to inReadPos for
/// each of packetCount slots, and inAvailable becomes (inEndPos - inReadPos) / 2, cut to 16 bits.
/// The library computes with inReadPos and inEndPos but never reads through them, and never changes
/// inEndPos. A call that conceals because of inAvailable changes no field of the input.
///
/// pktCursor walks over packet records of 16-bit little-endian words:
///
/// | word | content |
/// |---|---|
/// | 0 | length of the record in words, these four included |
/// | 1 | sequence number |
/// | 2, 3 | bandwidth code of the codec, low word first |
/// | 4 and later | decoded PCM |
///
/// One frame (frameSamples samples) is read from each record, whatever its length, and pktCursor
/// and pktWordsLeft move past the record. A record that does not lie within pktWordsLeft, or has no
/// sample, is logged and ends the reading of the call.
///
/// **Output.** Each frame is appended at outWrite. When fewer than 11520 bytes lie between outWrite
/// and outEnd, AiPlcApply compacts the area first: it moves outPending samples and 20 ms more from
/// outRead to outBase, sets outRead to outBase, and sets outWrite behind the moved samples.
/// Therefore the host reads both positions again after each call, and does one of two things:
///
/// - It takes everything after each call and sets outRead = outWrite = outBase and outPending = 0.
///   An area of 11520 bytes or more is then never compacted.
/// - It keeps outRead 20 ms in front of the first sample that it has not taken, from the beginning
///   on (outWrite = outRead + 20 ms in an empty area), and subtracts the samples that it takes from
///   outPending.
///
/// A host whose outRead is the first sample not yet taken finds 20 ms of stale audio there after a
/// compaction. An area without room for the samples that must be kept is logged and left as it is.
/// A frame that then does not fit behind outWrite is logged and dropped: outWrite and outPending
/// stay.
typedef struct AiPlcHostStream {
    uint8_t *inReadPos;     ///< start of the input that was not taken yet
    uint8_t *inEndPos;      ///< end of the input
    uint16_t inAvailable;   ///< decoded samples; 0 or no whole number of frames: conceal
    uint16_t *pktCursor;    ///< next packet record
    uint16_t pktWordsLeft;  ///< 16-bit words from pktCursor on
    uint8_t *outBase;       ///< start of the output area
    uint8_t *outEnd;        ///< end of the output area
    uint8_t *outRead;       ///< moved by the host, and by AiPlcApply when it compacts
    uint8_t *outWrite;      ///< the next frame is appended here; moved by AiPlcApply
    uint16_t outPending;    ///< samples appended and not taken; the host subtracts those it takes
} AiPlcHostStream;

/// Counters of a host. The samples that concealing calls append are added to one of the first two.
typedef struct AiPlcHostStats {
    uint32_t concealedSamples;     ///< the usual counter
    uint32_t concealedSamplesAlt;  ///< chosen by AiPlcHostContext::altCounterSelect
    uint16_t counterMode;          ///< 1: always count in concealedSamples
    uint32_t sampleRate;           ///< Hz; gives the 20 ms that a compaction keeps
} AiPlcHostStats;

/// The host's record of one call. The host owns it, AiPlcApply reads and updates it.
typedef struct AiPlcHostContext {
    uint8_t decoderTag;         ///< handed on to decodeLost
    uint32_t altCounterSelect;  ///< non-zero with counterMode other than 1: concealedSamplesAlt
    uint32_t samplesOut;        ///< the library adds the samples that it appends
    uint32_t opusPlcRequests;   ///< the library adds 1 for each call of decodeLost
    AiPlcHostStream streams[AIPLC_MAX_STREAMS];  ///< AiPlcApply's third argument chooses one
    AiPlcHostStats *stats;                       ///< never null
    AiPlcDecodeLostFunc decodeLost;              ///< never null
    StAiPlcChannel *channel;                     ///< from AiPlcCreate
    int32_t packetCount;  ///< packet slots of this call, 1 to 8; not read when inAvailable is 0
} AiPlcHostContext;

/// Receives every log line, on the thread that drives the channel: the audio thread as a rule.
///
/// @param sourceUnit name of the unit that logs
/// @param line its line
/// @param format always "[AUDIO_AIPLC] %s", with the finished text as the one further argument
typedef void (*AiplcLogFunc)(const char *sourceUnit, int32_t line, const char *format, ...);

// ---- The calls of a host ------------------------------------------------------------------------

/// Sets the log function of the process. Call it before any frame runs.
///
/// @param callback replaces the one before; null switches logging off
AIPLC_EXPORT void AiplcRegLog(AiplcLogFunc callback);

/// Makes a channel of a block of memory.
///
/// @param channel receives the block's address, or null when block is null
/// @param block 15200 bytes, owned by the host until AiPlcAsyncDestroy has returned; cleared here
/// @return 0, or -1 for a null argument
AIPLC_EXPORT int32_t AiPlcCreate(StAiPlcChannel **channel, void *block);

/// Resets the channel, builds its rings and starts the worker. Blocks for some tenths of a second
/// as a rule and for 8 s at worst, so that it must not run on an audio thread that plays.
///
/// The worker is found through a namespace, whose name is read here from the environment variable
/// AIPLC_NAMESPACE. A namespace serves one channel with a worker, of one host: channels that share
/// one get each other's audio, and the first to be destroyed takes the worker away from the others.
/// Give each channel a name of its own while it is set up.
///
/// @param channel must not hold rings: destroy it before a second AiPlcAsyncInit
/// @param enable 1: start the worker; 0: the codec conceals everything
/// @return 0, AIPLC_E_INVALID, AIPLC_E_NO_ADAPTER, AIPLC_E_NO_RINGS, AIPLC_E_NOT_STARTED or
///         AIPLC_E_NO_ANSWER. After AIPLC_E_NO_ADAPTER, AIPLC_E_NOT_STARTED and AIPLC_E_NO_ANSWER
///         the channel works without the worker.
AIPLC_EXPORT int32_t AiPlcAsyncInit(StAiPlcChannel *channel, int16_t enable);

/// Plays one frame of 20 ms: takes the stream's decoded packets and appends the frame to play at
/// AiPlcHostStream::outWrite. It has the codec conceal when inAvailable is 0 or no whole number of
/// frames, or when no packet record gives a frame. Blocks for at most 26 ms, and only when the
/// worker is late. Runs on the audio thread.
///
/// @param host the record of the call
/// @param userArg handed on to AiPlcHostContext::decodeLost
/// @param stream index into AiPlcHostContext::streams, 0 to 7
/// @return 0, or -1: a null or unusable record, a failure of decodeLost, or no room for the frame
/// of
///         a call that conceals. A call that takes packets returns 0 without room, too;
///         AiPlcHostStream::outPending tells.
AIPLC_EXPORT int32_t AiPlcApply(AiPlcHostContext *host, uint32_t userArg, uint16_t stream);

/// Frees the rings and, where the worker was started, tells it to quit, without waiting for its
/// end. May be repeated.
///
/// @return 0, or -1 for a null channel
AIPLC_EXPORT int32_t AiPlcAsyncDestroy(StAiPlcChannel *channel);

#ifdef __cplusplus
}
#endif

#include <aiplc/building_blocks.h>

#endif
