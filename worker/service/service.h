// SPDX-License-Identifier: BSD-2-Clause
//
// The worker's side of the protocol over the named objects.

#ifndef AIPLC_WORKER_SERVICE_H
#define AIPLC_WORKER_SERVICE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "src/adapter/protocol.h"
#include "src/platform/platform.h"
#include "worker/window/predictor.h"

namespace aiplc::worker {

struct HandleCloser {
    void operator()(void *handle) const { platform::CloseHandle(handle); }
};
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

struct ViewCloser {
    void operator()(protocol::SharedBlock *block) const { platform::UnmapView(block); }
};

// Open, then Run, both on one thread, which from then on owns the mutex whenever the worker does.
class Service {
  public:
    explicit Service(Predictor &predictor);
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Opens or creates the named objects. On failure says on stderr what is wrong, returns false.
    bool Open();

    // Serves until a message asks to quit, or until the last host that used the namespace is gone
    // (0), or until the objects fail (1). If no host exists yet, waits 60 s for one.
    int Run();

  private:
    // Shared with the thread that watches the hosts, which may outlive the service.
    struct HostWatch {
        bool Wake();  // false once the service has ended

        std::mutex lock;
        platform::Handle workerReceiver = nullptr;  // wakes Run; null once the service has ended
        std::atomic<bool> hostsGone = false;
    };

    uint32_t Message() const;
    uint32_t WaitForMessage();
    void Act(uint32_t message);
    void StartHostWatch();
    bool TakeMutex(uint32_t message);
    void Answer();
    void ReplyAgain();
    void Quit();
    void MakeReady();
    void Prepare();
    void ServeRequest();

    Predictor &m_predictor;
    UniqueHandle m_mapping;
    std::unique_ptr<protocol::SharedBlock, ViewCloser> m_block;
    std::shared_ptr<HostWatch> m_watch;
    UniqueHandle m_workerReceiver;
    UniqueHandle m_adapterReceiver;
    UniqueHandle m_processStarted;
    UniqueHandle m_inputReady;
    UniqueHandle m_mutex;
    bool m_startedByHost = false;  // the block was there already
    bool m_watching = false;
    bool m_isFirstMessage = true;
    bool m_isPrepared = false;
    bool m_quits = false;          // as soon as no answer is to be given any more
    int64_t m_repliesUntilMs = 0;  // 0: none is given again
    int64_t m_nextReplyMs = 0;

    // Private copies: the library may write a new request while one is served past its time.
    std::array<int16_t, kWindowSamples> m_in{};
    std::array<int16_t, kWindowSamples> m_out{};
};

}  // namespace aiplc::worker

#endif
