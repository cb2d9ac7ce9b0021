// SPDX-License-Identifier: BSD-2-Clause

/// @file
/// libaiplc-receiver: the receiving end of an Opus call. Packets go in as the network brings them,
/// audio comes out at a steady pace, and what is missing is concealed.
///
///  1. AiPlcReceiverDefaults, then change the options that differ
///  2. AiPlcReceiverCreate
///  3. AiPlcReceiverPushRtp or AiPlcReceiverPush for each packet that arrives, and
///     AiPlcReceiverPull for each 10 or 20 ms that are played
///  4. AiPlcReceiverDestroy
///
/// Threads: a receiver belongs to one thread at a time; different receivers are independent. Push
/// and Pull do not wait for anything but a prediction, which takes up to 26 ms when a worker
/// process is late (AIPLC_PREDICTOR_WORKER) and the network's own computing time otherwise.
///
/// PCM is mono, signed 16 bit. Functions that return int32_t return AIPLC_RECEIVER_OK or one of the
/// errors below it, and change nothing when they fail. No function throws. The header compiles as
/// C11 and as C++20.

#ifndef AIPLC_RECEIVER_H
#define AIPLC_RECEIVER_H

#include <stddef.h>
#include <stdint.h>

/// @cond
#if defined(_WIN32)
#if defined(AIPLC_RECEIVER_BUILDING)
#define AIPLC_RECEIVER_EXPORT __declspec(dllexport)
#else
#define AIPLC_RECEIVER_EXPORT __declspec(dllimport)
#endif
#else
#define AIPLC_RECEIVER_EXPORT __attribute__((visibility("default")))
#endif
/// @endcond

#ifdef __cplusplus
extern "C" {
#endif

/// A receiver; only the functions below look inside.
typedef struct AiPlcReceiver AiPlcReceiver;

/// Results of the functions.
enum AiPlcReceiverResult {
    AIPLC_RECEIVER_OK = 0,
    AIPLC_RECEIVER_E_ARGUMENT = -1,  ///< a null pointer, or a length that is not allowed
    AIPLC_RECEIVER_E_OPTION = -2,    ///< an option out of its range; the log names it
    AIPLC_RECEIVER_E_MODEL = -3,     ///< the network's weights are missing or damaged
    AIPLC_RECEIVER_E_MEMORY = -4,    ///< no memory
    AIPLC_RECEIVER_E_FAILED = -5,    ///< decoder or channel could not be made
    AIPLC_RECEIVER_E_PACKET = -6     ///< not an RTP packet of this stream; it is counted, no more
};

/// Who fills the gaps.
enum AiPlcPredictor {
    /// The codec alone.
    AIPLC_PREDICTOR_NONE = 0,
    /// The network in a worker process, within a time limit; the codec when it is late. For a live
    /// call: nothing that happens to the worker disturbs the caller. One process for each receiver.
    AIPLC_PREDICTOR_WORKER = 1,
    /// The network on the caller's thread. For servers, plug-ins and offline work: no processes, no
    /// time limits, the same input gives the same output. Receivers share the weights.
    AIPLC_PREDICTOR_IN_PROCESS = 2
};

/// How long packets are waited for.
enum AiPlcJitterBuffer {
    /// A frame is due with the Pull that asks for it: the caller has a jitter buffer, or the
    /// packets
    /// have no jitter.
    AIPLC_JITTER_NONE = 0,
    /// Always minDelayMs before a frame is due; its packet is used for 60 ms more, until the frame
    /// is played (useLatePackets). Where the clocks of sender and player differ, pauses and steady
    /// voice are stretched or shortened.
    AIPLC_JITTER_FIXED = 1,
    /// The same, as long as the network asks for, from minDelayMs to maxDelayMs: the delay of 97 %
    /// of the packets of the last seconds less those 60 ms, at least the delay of 90 %.
    AIPLC_JITTER_ADAPTIVE = 2
};

/// Where the audio of a 20 ms frame comes from.
enum AiPlcFrameSource {
    AIPLC_SOURCE_STARTUP = 0,       ///< silence before the first frame of the call
    AIPLC_SOURCE_DECODED = 1,       ///< its packet arrived in time
    AIPLC_SOURCE_LATE = 2,          ///< its packet arrived within the look-ahead, after it was due
    AIPLC_SOURCE_FEC = 3,           ///< in-band redundancy of the packet after it
    AIPLC_SOURCE_DTX = 4,           ///< comfort noise: the sender was pausing
    AIPLC_SOURCE_PARTIAL = 5,       ///< a part of it arrived, the codec concealed the rest
    AIPLC_SOURCE_INTERPOLATED = 6,  ///< network, with received audio on both sides
    AIPLC_SOURCE_EXTRAPOLATED = 7,  ///< network, with no received audio after it
    AIPLC_SOURCE_SECOND_LOOK = 8,   ///< network, a single loss that the receiver asked for itself
    AIPLC_SOURCE_CODEC = 9,         ///< the codec's own concealment
    AIPLC_SOURCE_MUTED = 10,        ///< faded out at the prediction limit
    AIPLC_SOURCE_LOST = 11,         ///< silence in place of a frame that nobody filled
    AIPLC_SOURCE_REDUNDANT = 12     ///< a copy in a later packet (RFC 2198)
};
#define AIPLC_FRAME_SOURCES 13U  ///< number of sources

/// Severity of a log line.
enum AiPlcReceiverLogLevel {
    AIPLC_RECEIVER_LOG_ERROR = 0,    ///< why a call failed
    AIPLC_RECEIVER_LOG_WARNING = 1,  ///< the call goes on with less than was asked for
    AIPLC_RECEIVER_LOG_NOTE = 2      ///< something about the stream has changed
};

/// Takes one line of text, without a newline, on the thread of the call that logs.
///
/// @param userData AiPlcReceiverOptions::logUserData
/// @param level AiPlcReceiverLogLevel
/// @param text valid until the function returns; UTF-8
typedef void (*AiPlcReceiverLogFunc)(void *userData, int32_t level, const char *text);

/// How a receiver is set up. Flags are 0 or 1.
typedef struct AiPlcReceiverOptions {
    uint32_t structSize;        ///< bytes; set by AiPlcReceiverDefaults
    uint32_t sampleRate;        ///< Hz, of the output: 16000 or 48000 (48000)
    int32_t predictor;          ///< AiPlcPredictor (AIPLC_PREDICTOR_WORKER)
    int32_t useSecondLook;      ///< ask the network for single lost frames too (1)
    int32_t useFec;             ///< recover from in-band redundancy (1)
    int32_t useLatePackets;     ///< use packets that come up to 60 ms after they were due (1)
    int32_t expectPauses;       ///< the sender may stop in pauses without a word (1)
    int32_t codecConceals;      ///< 0: silence in place of what the codec would conceal (1)
    int32_t decoderComplexity;  ///< 0 to 10, of libopus' decoder (10): from 5 on its own network
                                ///< conceals, from 6 on it enhances wideband speech, both with
                                ///< libopus 1.5 and later
    int32_t payloadType;  ///< of Opus in RTP, 0 to 63 or 96 to 127; -1 (the default): any that is
                          ///< not another
    int32_t
        redPayloadType;  ///< of redundant audio (RFC 2198), as payloadType; -1 (the default): none
    int32_t jitterBuffer;  ///< AiPlcJitterBuffer (AIPLC_JITTER_NONE)
    int32_t minDelayMs;    ///< 0 to 2000 (0): see AiPlcJitterBuffer
    int32_t maxDelayMs;    ///< minDelayMs to 2000 (500)
    const char
        *modelPath;  ///< file of the weights for AIPLC_PREDICTOR_IN_PROCESS; null (the
                     ///< default): AIPLC_MODEL of the environment, else
                     ///< x64/xanu_audio_aiplc.model beside the program, else the installed one
    AiPlcReceiverLogFunc log;  ///< null (the default): nothing is logged
    void *logUserData;         ///< handed to log; the caller's
} AiPlcReceiverOptions;

/// Counters since creation or the last AiPlcReceiverReset. Names of the first two groups and their
/// meanings are those of RTCInboundRtpStreamStats (W3C "Identifiers for WebRTC's Statistics API");
/// times are in seconds there. Samples are counted at the receiver's rate, from frame 0 on.
typedef struct AiPlcReceiverStatistics {
    uint32_t structSize;  ///< bytes; set by the caller

    uint64_t packetsReceived;        ///< duplicates included
    int64_t packetsLost;             ///< RFC 3550 6.4.1: expected minus received
    uint64_t packetsDiscarded;       ///< too late, too early or out of place; never played
    uint64_t packetsDuplicated;      ///< not counted as discarded
    uint64_t fecPacketsReceived;     ///< packets that carry in-band redundancy
    uint64_t fecPacketsDiscarded;    ///< of those, redundancy that nobody needed
    uint64_t bytesReceived;          ///< payloads
    double jitter;                   ///< RFC 3550 6.4.1, of packets with an arrival time
    double jitterBufferDelay;        ///< sum over emitted samples of the time since their arrival,
                                     ///< the look-ahead of 60 ms included
    double jitterBufferTargetDelay;  ///< sum over emitted samples of the delay aimed at, likewise
    uint64_t jitterBufferEmittedCount;        ///< samples that came out of the jitter buffer
    uint64_t insertedSamplesForDeceleration;  ///< by which audio was stretched
    uint64_t removedSamplesForAcceleration;   ///< by which audio was shortened

    uint64_t totalSamplesReceived;    ///< concealed ones included
    uint64_t concealedSamples;        ///< not received
    uint64_t silentConcealedSamples;  ///< of those, played as silence
    uint64_t concealmentEvents;       ///< runs of concealed samples
    double totalSamplesDuration;      ///< of the output
    double totalAudioEnergy;          ///< sum of (rms / full scale)^2 x seconds

    uint64_t packetsUndecodable;       ///< no valid Opus packet; treated as lost
    uint64_t packetsForeign;           ///< no RTP packet, or of another payload type
    uint64_t timelineRestarts;         ///< jumps of the sender's clock that were followed
    uint64_t sourceChanges;            ///< new synchronisation sources (SSRC) that were followed
    uint64_t redundantBlocksReceived;  ///< copies of Opus in redundant audio (RFC 2198)
    uint64_t redundantBlocksUsed;      ///< of those, played

    uint64_t framesBySource[AIPLC_FRAME_SOURCES];  ///< all output frames by AiPlcFrameSource
    uint64_t
        decisionsByMode[9];      ///< by AiPlcInferMode; 1 to 5 asked the network, 7 and 8 the codec
    uint64_t decisionsHeldOff;   ///< losses left to the codec because of an earlier failure
    uint64_t requests;           ///< predictions that were asked for
    uint64_t requestsFailed;     ///< of those, not answered or not in time
    uint64_t secondLooks;        ///< of the requests, for single losses
    uint64_t secondLooksFailed;  ///< of those, failed
    float requestTimeP50Ms;      ///< of the last 65536 requests, nearest rank; 0 without any
    float requestTimeP99Ms;      ///< the same
    float requestTimeMaxMs;      ///< of all requests
    float initTimeMs;            ///< set-up of channel and worker; 0 when it did not start
} AiPlcReceiverStatistics;

/// Origin of a 20 ms frame of the output.
typedef struct AiPlcReceiverFrame {
    uint32_t structSize;        ///< bytes; set by the caller
    int32_t source;             ///< AiPlcFrameSource
    int64_t frame;              ///< 0: first frame of the call; -3 to -1 start-up; -4 no packet yet
    uint32_t concealedSamples;  ///< how many of its samples are not received audio
    uint32_t bandwidth;         ///< OPUS_BANDWIDTH_*, 0 for frames that the library made
    int32_t packetType;         ///< AiPlcPktType, the library's own verdict
    int32_t inferMode;          ///< AiPlcInferMode that decided this frame, here or one before
    int32_t decidedMode;        ///< AiPlcInferMode that was decided with this frame
    float requestTimeMs;        ///< of the request made with this frame, 0 without one
    uint8_t requested;          ///< 1: the network was asked with this frame
    uint8_t requestFailed;      ///< 1: and gave no prediction in time
    uint8_t secondLook;         ///< 1: that request was for a single loss
    uint8_t heldOff;            ///< 1: it was not asked because of an earlier failure
    uint8_t fusedIntoPredict;   ///< 1: cross-faded from received audio into a prediction
    uint8_t fusedFromPredict;   ///< 1: cross-faded from a prediction into received audio
    uint8_t opusPlcApplied;     ///< 1: played from the codec's own path
} AiPlcReceiverFrame;

/// Writes the defaults, those in brackets above.
///
/// @param options the caller's; null does nothing
AIPLC_RECEIVER_EXPORT void AiPlcReceiverDefaults(AiPlcReceiverOptions *options);

/// Makes a receiver. With AIPLC_PREDICTOR_WORKER it starts the worker x64/xanu_audio_aiplc.exe
/// beside the program, which may block for up to 8 s, and as long again for each receiver that
/// another thread creates at that time; AIPLC_NAMESPACE of the environment is changed meanwhile, so
/// that no other thread may use the environment (setenv(3)). A worker that does not start is no
/// error: AiPlcReceiverPredictorRunning tells.
///
/// @param receiver set on success, to be given to AiPlcReceiverDestroy; null on failure
/// @param options read during the call; log and logUserData are kept
/// @return AIPLC_RECEIVER_OK, _E_ARGUMENT, _E_OPTION, _E_MODEL, _E_MEMORY or _E_FAILED
AIPLC_RECEIVER_EXPORT int32_t AiPlcReceiverCreate(AiPlcReceiver **receiver,
                                                  const AiPlcReceiverOptions *options);

/// Ends the receiver and its worker.
///
/// @param receiver from AiPlcReceiverCreate, or null, which does nothing
AIPLC_RECEIVER_EXPORT void AiPlcReceiverDestroy(AiPlcReceiver *receiver);

/// Begins a new call with the same options: no packets, no history, counters at 0. The worker
/// stays.
///
/// @param receiver from AiPlcReceiverCreate
/// @return AIPLC_RECEIVER_OK, or _E_ARGUMENT, _E_MEMORY or _E_FAILED; after the last two the old
///         call goes on
AIPLC_RECEIVER_EXPORT int32_t AiPlcReceiverReset(AiPlcReceiver *receiver);

/// Takes a whole RTP packet (RFC 3550, RFC 7587), with any bytes in it, in any order, any number of
/// times. A new SSRC is followed once two of its packets came in a row. Of redundant audio
/// (AiPlcReceiverOptions::redPayloadType) copies are used for packets that are missing, as far back
/// as their audio can still be played; the packet's own audio must be of payloadType where that is
/// given, and copies of the same type.
///
/// @param receiver from AiPlcReceiverCreate
/// @param packet copied
/// @param bytes length of the packet
/// @param arrivalUs when it arrived, in microseconds of any steady clock; -1: now, where now is the
///        time of the last Pull. Only the jitter buffer and the jitter need it.
/// @return AIPLC_RECEIVER_OK, _E_ARGUMENT, _E_MEMORY, or _E_PACKET for what is not this stream's
AIPLC_RECEIVER_EXPORT int32_t AiPlcReceiverPushRtp(AiPlcReceiver *receiver, const void *packet,
                                                   size_t bytes, int64_t arrivalUs);

/// Takes one Opus packet with its numbers from RTP. May be mixed with AiPlcReceiverPushRtp only for
/// the same stream.
///
/// @param receiver from AiPlcReceiverCreate
/// @param payload one Opus packet, copied; null is allowed when bytes is 0
/// @param bytes its length; what is not Opus is counted as undecodable
/// @param sequenceNumber consecutive over sent packets
/// @param timestamp on the 48 kHz clock, whatever the audio's own rate
/// @param arrivalUs as for AiPlcReceiverPushRtp
/// @return AIPLC_RECEIVER_OK, _E_ARGUMENT or _E_MEMORY
AIPLC_RECEIVER_EXPORT int32_t AiPlcReceiverPush(AiPlcReceiver *receiver, const void *payload,
                                                size_t bytes, uint16_t sequenceNumber,
                                                uint32_t timestamp, int64_t arrivalUs);

/// Gives the next audio. Output runs three frames (60 ms) behind the newest frame that is due.
///
/// @param receiver from AiPlcReceiverCreate
/// @param samples room for count samples
/// @param count a multiple of 10 ms (160 samples at 16 kHz, 480 at 48 kHz), from one up to a second
/// @return AIPLC_RECEIVER_OK, _E_ARGUMENT or _E_MEMORY; samples are silent when it fails
AIPLC_RECEIVER_EXPORT int32_t AiPlcReceiverPull(AiPlcReceiver *receiver, int16_t *samples,
                                                size_t count);

/// Tells what the frame is made of that holds the last sample of the last Pull.
///
/// @param receiver from AiPlcReceiverCreate
/// @param frame structSize set by the caller to sizeof(AiPlcReceiverFrame)
/// @return AIPLC_RECEIVER_OK or _E_ARGUMENT
AIPLC_RECEIVER_EXPORT int32_t AiPlcReceiverLastFrame(const AiPlcReceiver *receiver,
                                                     AiPlcReceiverFrame *frame);

/// Copies the counters.
///
/// @param receiver from AiPlcReceiverCreate
/// @param statistics structSize set by the caller to sizeof(AiPlcReceiverStatistics)
/// @return AIPLC_RECEIVER_OK or _E_ARGUMENT
AIPLC_RECEIVER_EXPORT int32_t AiPlcReceiverGetStatistics(const AiPlcReceiver *receiver,
                                                         AiPlcReceiverStatistics *statistics);

/// Samples by which the output trails the audio that is due: the look-ahead, and the delay of the
/// filters at 48 kHz (44 samples) and for narrowband speech (15 at 16 kHz, 45 at 48 kHz). The
/// encoder's delay and the jitter buffer's come on top.
///
/// @param receiver from AiPlcReceiverCreate
/// @return 0 for null
AIPLC_RECEIVER_EXPORT uint32_t AiPlcReceiverDelay(const AiPlcReceiver *receiver);

/// Tells whether there is a network to ask.
///
/// @param receiver from AiPlcReceiverCreate
/// @return 1 when the network can be asked, 0 when the codec conceals every loss, or for null
AIPLC_RECEIVER_EXPORT int32_t AiPlcReceiverPredictorRunning(const AiPlcReceiver *receiver);

/// Names a source for reports.
///
/// @param source AiPlcFrameSource
/// @return such as "decoded", "unknown" outside the range; lives for ever
AIPLC_RECEIVER_EXPORT const char *AiPlcFrameSourceName(int32_t source);

/// Puts a result into words.
///
/// @param result AiPlcReceiverResult
/// @return such as "success"; lives for ever
AIPLC_RECEIVER_EXPORT const char *AiPlcReceiverResultText(int32_t result);

#ifdef __cplusplus
}
#endif

#endif
