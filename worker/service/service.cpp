// SPDX-License-Identifier: BSD-2-Clause

#include "worker/service/service.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

#include "worker/window/denormals.h"

namespace aiplc::worker {

namespace {

using protocol::SharedBlock;

static_assert(kWindowSamples == protocol::kWindowSamples);

// How long a worker that was started first waits for a host.
constexpr uint32_t kFirstHostMs = 60'000;
// How often a worker whose hosts are gone is woken.
constexpr uint32_t kWakeAgainMs = 20;
// How often a wait for the mutex looks whether the message still stands.
constexpr uint32_t kMutexSliceMs = 20;
// How often and how long an answer to a host that starts is given again.
constexpr int64_t kReplyAgainMs = 20;
constexpr int64_t kRepliesMs = 1000;
// How long a worker that is told to quit within that time stays.
constexpr int64_t kLingerMs = 300;

bool Refuse(const char *name) {
    std::fprintf(stderr, "%s: cannot create or open \"%s\": error %u\n",
                 protocol::kWorkerExecutable, name, platform::LastError());
    return false;
}

int64_t NowMs() {
    const int64_t frequency = platform::PerformanceFrequency();
    return platform::PerformanceCounter() / std::max<int64_t>(frequency / 1000, 1);
}

bool OpenEvent(const char *name, UniqueHandle &event) {
    event.reset(platform::CreateNamedEvent(name));
    return event || Refuse(name);
}

}  // namespace

Service::Service(Predictor &predictor)
    : m_predictor(predictor), m_watch(std::make_shared<HostWatch>()) {}

// The last process to let go of a namespace removes it: the watch must not hold anything then.
Service::~Service() {
    const std::lock_guard guard(m_watch->lock);
    m_watch->workerReceiver = nullptr;
}

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
    if (!OpenEvent(protocol::kWorkerReceiverName, m_workerReceiver) ||
        !OpenEvent(protocol::kAdapterReceiverName, m_adapterReceiver) ||
        !OpenEvent(protocol::kProcessStartedName, m_processStarted) ||
        !OpenEvent(protocol::kInputReadyName, m_inputReady))
        return false;
    m_watch->workerReceiver = m_workerReceiver.get();
    m_mutex.reset(platform::CreateNamedMutex(protocol::kInferMutexName));
    return m_mutex || Refuse(protocol::kInferMutexName);
}

int Service::Run() {
    const DenormalsAreZero mode;
    if (m_startedByHost) StartHostWatch();
    while (!m_quits || m_repliesUntilMs > 0) {
        const uint32_t outcome = WaitForMessage();
        if (m_watch->hostsGone.load()) return 0;
        if (outcome == platform::kWaitSignalled) {
            StartHostWatch();
            Act(Message());
            m_isFirstMessage = false;
        } else if (outcome != platform::kWaitTimeout) {
            std::fprintf(stderr, "%s: waiting for \"%s\" failed: error %u\n",
                         protocol::kWorkerExecutable, protocol::kWorkerReceiverName,
                         platform::LastError());
            return 1;
        }
        if (m_repliesUntilMs == 0) {
            StartHostWatch();  // nobody has come for a minute, if it is not there yet
        } else if (NowMs() >= m_nextReplyMs) {
            ReplyAgain();
        }
    }
    return 0;
}

uint32_t Service::WaitForMessage() {
    uint32_t limitMs = m_watching ? platform::kWaitForever : kFirstHostMs;
    if (m_repliesUntilMs > 0) limitMs = kReplyAgainMs;
    return platform::Wait(m_workerReceiver.get(), limitMs);
}

void Service::Act(uint32_t message) {
    switch (message) {
        case protocol::AIPLC_CHECK_READY:
            Answer();
            break;
        case protocol::AIPLC_INIT:
            MakeReady();
            break;
        case protocol::AIPLC_PROCESS:
            ServeRequest();
            break;
        case protocol::AIPLC_DELETE:
            // The first message may be left over from an earlier worker. A host that means this
            // worker repeats it.
            if (!m_isFirstMessage) Quit();
            break;
        default:  // AIPLC_NONE, or no message of this protocol
            break;
    }
}

// Hosts that start in the same moment share the block and the events: one message overwrites
// another before it is read, two signals are one, and one host takes the answer that the other
// waits for, up to five seconds and without asking again. So each answer is given again for a
// second, to all who wait.
void Service::Answer() {
    platform::SetEvent(m_adapterReceiver.get());
    m_nextReplyMs = NowMs() + kReplyAgainMs;
    if (!m_quits) m_repliesUntilMs = NowMs() + kRepliesMs;
}

void Service::ReplyAgain() {
    // It may answer an AIPLC_INIT that was overwritten.
    Prepare();
    const uint32_t outcome = platform::Wait(m_mutex.get(), 0);
    if (outcome == platform::kWaitSignalled || outcome == platform::kWaitAbandoned)
        platform::ReleaseMutex(m_mutex.get());
    // One that nobody waited for does not stay: it would be taken for another worker's.
    platform::Wait(m_adapterReceiver.get(), 0);
    m_nextReplyMs = NowMs() + kReplyAgainMs;
    if (NowMs() < m_repliesUntilMs)
        platform::SetEvent(m_adapterReceiver.get());
    else
        m_repliesUntilMs = 0;
}

// A host that has just been answered looks for the worker's process, and gives up when another host
// has told it to quit meanwhile.
void Service::Quit() {
    m_quits = true;
    m_repliesUntilMs = std::min(m_repliesUntilMs, NowMs() + kLingerMs);
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
            while (watch->Wake())
                platform::Sleep(kWakeAgainMs);
        }).detach();
    } catch (const std::system_error &) {
        return;
    }
}

// Another worker that uses the namespace too may take the signal: repeated until this one has
// ended.
bool Service::HostWatch::Wake() {
    const std::lock_guard guard(lock);
    return workerReceiver != nullptr && platform::SetEvent(workerReceiver);
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
// request would be refused otherwise.
void Service::MakeReady() {
    if (!TakeMutex(protocol::AIPLC_INIT)) return;
    platform::ReleaseMutex(m_mutex.get());
    Prepare();
    Answer();
}

// A first prediction brings the model's pages into memory.
void Service::Prepare() {
    if (m_isPrepared) return;
    m_isPrepared = true;
    std::fill(m_in.begin(), m_in.begin() + kWindowSamples / 2, int16_t{1});
    std::fill(m_in.begin() + kWindowSamples / 2, m_in.end(), int16_t{0});
    m_predictor.Predict(m_in, m_out);
    m_predictor.ForgetLast();
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
