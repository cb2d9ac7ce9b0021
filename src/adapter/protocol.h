// SPDX-License-Identifier: BSD-2-Clause
//
// The protocol of library and worker: names, layout of the shared block, message ids.

#ifndef AIPLC_PROTOCOL_H
#define AIPLC_PROTOCOL_H

#include <cstddef>
#include <cstdint>

namespace aiplc::protocol {

inline constexpr char kSharedMemName[] = "SharedMem";
inline constexpr char kWorkerReceiverName[] = "AIPLC_WORKER_RECEIVER";    // library -> worker
inline constexpr char kAdapterReceiverName[] = "AIPLC_ADAPTER_RECEIVER";  // worker -> library
inline constexpr char kProcessStartedName[] = "AIPLC_PROCESS_STARTED";    // worker -> library
inline constexpr char kInputReadyName[] = "AIPLC_INPUT_READY";            // library -> worker
inline constexpr char kInferMutexName[] = "AiplcInferMutex";
inline constexpr char kWorkerExecutable[] = "xanu_audio_aiplc.exe";
inline constexpr char kWorkerFolder[] = "x64";

enum MessageId : uint32_t {
    AIPLC_NONE = 0,
    AIPLC_INIT = 1,
    AIPLC_PROCESS = 2,
    AIPLC_DELETE = 3,
    AIPLC_CHECK_READY = 4,
};

inline constexpr size_t kWindowSamples = 2560;
inline constexpr size_t kWindowBytes = kWindowSamples * sizeof(int16_t);

// The other side may be hostile or broken: read every field once and check it.
struct SharedBlock {
    uint32_t msgId;   // written by the library
    int32_t retCode;  // written by the worker under the mutex
    uint8_t spare0[512];
    int16_t AudioIn[kWindowSamples];   // under the mutex
    int16_t AudioOut[kWindowSamples];  // under the mutex
    uint16_t inferArg;
    uint8_t spare1[2];
    uint32_t initParam0;  // 0
    uint32_t initParam1;  // 302
    uint8_t spare2[4];
};

static_assert(offsetof(SharedBlock, retCode) == 4);
static_assert(offsetof(SharedBlock, AudioIn) == 520);
static_assert(offsetof(SharedBlock, AudioOut) == 5640);
static_assert(offsetof(SharedBlock, inferArg) == 10760);
static_assert(offsetof(SharedBlock, initParam0) == 10764);
static_assert(offsetof(SharedBlock, initParam1) == 10768);
static_assert(sizeof(SharedBlock) == 10776);

}  // namespace aiplc::protocol

#endif
