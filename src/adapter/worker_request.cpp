// SPDX-License-Identifier: BSD-2-Clause
//
// One request: the input goes over under the mutex, the worker serves it, the output comes back.
//
// The mutex passes adapter -> worker -> adapter and is free again at the end, however the request
// ends; only a late worker still owns it then, and until it gives it back requests are refused.

#include <aiplc/adapter.h>

#include <algorithm>

#include "src/adapter/shared_block.h"

namespace {

namespace platform = aiplc::platform;
namespace protocol = aiplc::protocol;

constexpr char kSourceUnit[] = "aiplcAdapter";

constexpr int kFailed = -1;
constexpr int kTimedOut = 101;
constexpr int kNotRunning = 201;
constexpr int kNoSharedBlock = 202;
constexpr int kBusy = 310;

constexpr uint32_t kAcknowledgeMs = 10;

static_assert(sizeof(InoutDetail::AudioIn) == protocol::kWindowBytes);
static_assert(sizeof(InoutDetail::AudioOut) == protocol::kWindowBytes);

// The calling thread's ownership of the mutex, released at the latest at the end of the scope.
class MutexOwnership {
  public:
    struct Adopt {};

    explicit MutexOwnership(platform::Handle mutex) : m_mutex(mutex) {}
    MutexOwnership(platform::Handle mutex, Adopt) : m_mutex(mutex), m_owned(true) {}
    ~MutexOwnership() { Release(); }
    MutexOwnership(const MutexOwnership &) = delete;
    MutexOwnership &operator=(const MutexOwnership &) = delete;

    // The wait's outcome; an abandoned mutex comes with ownership.
    uint32_t Take(uint32_t timeoutMs) {
        const uint32_t outcome = platform::Wait(m_mutex, timeoutMs);
        m_owned = outcome == platform::kWaitSignalled || outcome == platform::kWaitAbandoned;
        return outcome;
    }

    bool Release() {
        if (!m_owned) {
            return false;
        }
        m_owned = false;
        return platform::ReleaseMutex(m_mutex);
    }

    // Leaves the release to someone else.
    void HandOver() { m_owned = false; }

  private:
    platform::Handle m_mutex;
    bool m_owned = false;
};

bool WaitForAcknowledgement(const IPC &ipc) {
    const uint32_t outcome =
        platform::Wait(aiplc::EventHandle(ipc, ipc.processStartedName), kAcknowledgeMs);
    if (outcome == platform::kWaitTimeout) {
        AudAiplcLog(kSourceUnit, __LINE__, "Wait for worker's acknowledgement timeout");
    } else if (outcome != platform::kWaitSignalled) {
        AudAiplcLog(kSourceUnit, __LINE__,
                    "AIPLC_PROCESS worker process didn't acknowledge: waitResult = %d",
                    static_cast<int>(outcome));
    }
    return outcome == platform::kWaitSignalled;
}

// The request's input into the block, and the events before the worker's own. Needs the mutex.
bool SendInput(const IPC &ipc, const InoutDetail &record) {
    protocol::SharedBlock &block = *aiplc::Block(ipc);
    const int copied = platform::CopyBounded(block.AudioIn, sizeof(block.AudioIn), record.AudioIn,
                                             sizeof(block.AudioIn));
    if (copied != 0) {
        AudAiplcLog(kSourceUnit, __LINE__, "memcpy_s AudioIn failed: ret = %d", copied);
        return false;
    }
    aiplc::StoreField(block.inferArg, record.inferArg);
    aiplc::StoreField(block.msgId, uint32_t{protocol::AIPLC_PROCESS});
    if (!platform::SetEvent(aiplc::EventHandle(ipc, ipc.inputReadyName))) {
        AudAiplcLog(kSourceUnit, __LINE__, "Send AIPLC_INPUT_READY msg failed: %d",
                    aiplc::LastErrorForLog());
        return false;
    }
    if (!platform::ResetEvent(aiplc::EventHandle(ipc, ipc.processStartedName))) {
        AudAiplcLog(kSourceUnit, __LINE__, "Reset AIPLC_PROCESS_STARTED failed: %d",
                    aiplc::LastErrorForLog());
        return false;
    }
    return true;
}

}  // namespace

int AiplcAdapter::Process(InoutDetail &record, int timeoutMs) {
    if (!workerRunning) {
        AudAiplcLog(kSourceUnit, __LINE__, "Worker process is not running!");
        return kNotRunning;
    }
    protocol::SharedBlock *block = aiplc::Block(m_ipc);
    if (block == nullptr) {
        AudAiplcLog(kSourceUnit, __LINE__, "Shared mem is NULL!");
        return kNoSharedBlock;
    }
    MutexOwnership mutex(m_ipc.inferMutex);
    if (mutex.Take(0) != platform::kWaitSignalled) {
        aiplc::StoreField(block->msgId, uint32_t{protocol::AIPLC_NONE});
        AudAiplcLog(kSourceUnit, __LINE__, "Previous inference has not finished");
        return kBusy;
    }
    if (!SendInput(m_ipc, record)) {
        return kFailed;
    }
    mutex.HandOver();
    if (const int result = AsyncInfer(record, timeoutMs); result != 0) {
        AudAiplcLog(kSourceUnit, __LINE__, "AsyncInfer failed: ret = %d", result);
        return kFailed;
    }
    return aiplc::LoadField(block->retCode);
}

int AiplcAdapter::AsyncInfer(InoutDetail &record, int timeoutMs) {
    MutexOwnership mutex(m_ipc.inferMutex, MutexOwnership::Adopt{});
    if (!platform::SetEvent(aiplc::EventHandle(m_ipc, m_ipc.workerReceiverName))) {
        AudAiplcLog(kSourceUnit, __LINE__,
                    "Setting AIPLC_WORKER_RECEIVER event for async inferencing failed: %d",
                    aiplc::LastErrorForLog());
        return kFailed;
    }
    if (!mutex.Release()) {
        AudAiplcLog(kSourceUnit, __LINE__, "Release InferMutex failed: %d",
                    aiplc::LastErrorForLog());
        return kFailed;
    }
    if (!WaitForAcknowledgement(m_ipc)) {
        return kFailed;
    }
    const uint32_t outcome = mutex.Take(static_cast<uint32_t>(std::max(timeoutMs, 0)));
    if (outcome == platform::kWaitTimeout) {
        AudAiplcLog(kSourceUnit, __LINE__, "AIPLC_PROCESS worker process timeout, use opus PLC.");
        return kTimedOut;
    }
    if (outcome != platform::kWaitSignalled) {
        AudAiplcLog(kSourceUnit, __LINE__, "AIPLC_PROCESS worker process other wait err: %d",
                    static_cast<int>(outcome));
        return kFailed;
    }
    const protocol::SharedBlock &block = *aiplc::Block(m_ipc);
    const int copied = platform::CopyBounded(record.AudioOut, sizeof(record.AudioOut),
                                             block.AudioOut, sizeof(record.AudioOut));
    if (copied != 0) {
        AudAiplcLog(kSourceUnit, __LINE__, "memcpy_s AudioOut failed: ret = %d", copied);
        return kFailed;
    }
    if (!mutex.Release()) {
        AudAiplcLog(kSourceUnit, __LINE__, "Release mutex after audio out failed: %d",
                    aiplc::LastErrorForLog());
        return kFailed;
    }
    return 0;
}
