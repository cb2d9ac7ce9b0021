// SPDX-License-Identifier: BSD-2-Clause

#include "service.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace aiplc::worker {

namespace {

using protocol::SharedBlock;

static_assert(kWindowSamples == protocol::kWindowSamples);

// How long a worker that was started first waits for a host.
constexpr uint32_t kFirstHostMs = 60'000;
// How often a wait for the mutex looks whether the message still stands.
constexpr uint32_t kMutexSliceMs = 20;

// Decaying filters run into denormal numbers, which cost a hundred times a normal one.
void FlushDenormals() {
#if defined(__SSE__)
    constexpr unsigned kFlushToZero = 0x8000;
    constexpr unsigned kDenormalsAreZero = 0x0040;
    _mm_setcsr(_mm_getcsr() | kFlushToZero | kDenormalsAreZero);
#endif
}

bool Refuse(const char *name) {
    std::fprintf(stderr, "%s: cannot create or open \"%s\": error %u\n",
                 protocol::kWorkerExecutable, name, platform::LastError());
    return false;
}

bool OpenEvent(const char *name, UniqueHandle &event) {
    event.reset(platform::CreateNamedEvent(name));
    return event || Refuse(name);
}

}  // namespace

Service::Service(Predictor &predictor)
    : m_predictor(predictor), m_watch(std::make_shared<HostWatch>()) {}

bool Service::Open() {
    m_mapping.reset(platform::OpenMapping(protocol::kSharedMemName));
    m_startedByHost = m_mapping != nullptr;
    if (!m_mapping)
        m_mapping.reset(platform::CreateMapping(protocol::kSharedMemName, sizeof(SharedBlock)));
    if (!m_mapping) return Refuse(protocol::kSharedMemName);
    size_t size = 0;
    m_block.reset(static_cast<SharedBlock *>(platform::MapView(m_mapping.get(), &size)));
    if (!m_block) return Refuse(protocol::kSharedMemName);
    if (size < sizeof(SharedBlock)) {
        std::fprintf(stderr, "%s: the shared block \"%s\" has %zu bytes, it needs %zu\n",
                     protocol::kWorkerExecutable, protocol::kSharedMemName, size,
                     sizeof(SharedBlock));
        return false;
    }
    if (!OpenEvent(protocol::kWorkerReceiverName, m_watch->workerReceiver) ||
        !OpenEvent(protocol::kAdapterReceiverName, m_adapterReceiver) ||
        !OpenEvent(protocol::kProcessStartedName, m_processStarted) ||
        !OpenEvent(protocol::kInputReadyName, m_inputReady))
        return false;
    m_mutex.reset(platform::CreateNamedMutex(protocol::kInferMutexName));
    return m_mutex || Refuse(protocol::kInferMutexName);
}

int Service::Run() {
    FlushDenormals();
    if (m_startedByHost) StartHostWatch();
    bool isFirst = true;  // message
    for (;;) {
        const uint32_t outcome = platform::Wait(m_watch->workerReceiver.get(),
                                                m_watching ? platform::kWaitForever : kFirstHostMs);
        if (m_watch->hostsGone.load()) return 0;
        if (outcome == platform::kWaitTimeout) {
            StartHostWatch();
            continue;
        }
        if (outcome != platform::kWaitSignalled) {
            std::fprintf(stderr, "%s: waiting for \"%s\" failed: error %u\n",
                         protocol::kWorkerExecutable, protocol::kWorkerReceiverName,
                         platform::LastError());
            return 1;
        }
        StartHostWatch();
        switch (Message()) {
            case protocol::AIPLC_CHECK_READY:
                platform::SetEvent(m_adapterReceiver.get());
                break;
            case protocol::AIPLC_INIT:
                MakeReady();
                break;
            case protocol::AIPLC_PROCESS:
                ServeRequest();
                break;
            case protocol::AIPLC_DELETE:
                // The first message may be one that a worker before this one did not take. Whoever
                // means this one asks again.
                if (!isFirst) return 0;
                break;
            default:  // AIPLC_NONE, or no message of this protocol
                break;
        }
        isFirst = false;
    }
}

// The library writes the message without a lock.
uint32_t Service::Message() const {
    return std::atomic_ref(m_block->msgId).load(std::memory_order_acquire);
}

// Without the watch, where no thread can be had, the worker still serves and quits when it is told
// to.
void Service::StartHostWatch() {
    if (m_watching) return;
    m_watching = true;
    try {
        std::thread([watch = m_watch] {
            if (!platform::WaitHostsGone()) return;
            watch->hostsGone.store(true);
            platform::SetEvent(watch->workerReceiver.get());
        }).detach();
    } catch (const std::system_error &) {
        return;
    }
}

// False when the message no longer stands: what the library wants instead has a signal of its own,
// which is still to be waited for.
bool Service::TakeMutex(uint32_t message) {
    for (;;) {
        const uint32_t outcome = platform::Wait(m_mutex.get(), kMutexSliceMs);
        if (outcome == platform::kWaitSignalled || outcome == platform::kWaitAbandoned) {
            if (Message() == message) return true;
            platform::ReleaseMutex(m_mutex.get());
            return false;
        }
        if (outcome != platform::kWaitTimeout || Message() != message || m_watch->hostsGone.load())
            return false;
    }
}

// Taking the mutex once clears the mark that a worker left which died while it owned it; the first
// request would be refused otherwise. A first prediction brings the model's pages into memory.
void Service::MakeReady() {
    if (!TakeMutex(protocol::AIPLC_INIT)) return;
    platform::ReleaseMutex(m_mutex.get());
    std::fill(m_in.begin(), m_in.begin() + kWindowSamples / 2, int16_t{1});
    std::fill(m_in.begin() + kWindowSamples / 2, m_in.end(), int16_t{0});
    m_predictor.Predict(m_in, m_out);
    m_predictor.ForgetLast();
    platform::SetEvent(m_adapterReceiver.get());
}

// Input is announced under the mutex, so its event tells a new request from one that was served
// already on the signal of a request before it, which the library had given up.
void Service::ServeRequest() {
    if (!TakeMutex(protocol::AIPLC_PROCESS)) return;
    if (platform::Wait(m_inputReady.get(), 0) == platform::kWaitSignalled) {
        platform::SetEvent(m_processStarted.get());
        std::memcpy(m_in.data(), m_block->AudioIn, sizeof(m_block->AudioIn));
        const int32_t result = m_predictor.Predict(m_in, m_out);
        if (result == 0) std::memcpy(m_block->AudioOut, m_out.data(), sizeof(m_block->AudioOut));
        m_block->retCode = result;
    }
    platform::ReleaseMutex(m_mutex.get());
}

}  // namespace aiplc::worker
