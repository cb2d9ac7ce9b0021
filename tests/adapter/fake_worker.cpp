// SPDX-License-Identifier: BSD-2-Clause
//
// A worker that misbehaves as the environment variable AIPLC_FAKE_WORKER tells it. A prediction is
// the input plus one; a number as behaviour is the retCode it comes with.

#include <csignal>
#include <cstdlib>
#include <string_view>

#include "adapter/protocol.h"
#include "platform/platform.h"

namespace {

using namespace aiplc::platform;
using namespace aiplc::protocol;

constexpr uint32_t kPatienceMs = 30000;  // a worker whose test has died ends too

std::string_view behaviour;
bool firstRequest = true;

bool Misbehaves(std::string_view name) {
    return firstRequest && behaviour == name;
}

void Serve(SharedBlock &block, Handle mutex) {
    static Handle started = CreateNamedEvent(kProcessStartedName);
    static Handle finish = CreateNamedEvent("FAKE_WORKER_FINISH");
    if (Misbehaves("dies idle")) raise(SIGKILL);
    if (Misbehaves("stops")) raise(SIGSTOP);
    Wait(mutex, kPatienceMs);
    if (Misbehaves("dies unacknowledged")) raise(SIGKILL);
    SetEvent(started);
    if (Misbehaves("dies serving")) raise(SIGKILL);
    if (Misbehaves("late")) Wait(finish, kPatienceMs);
    for (size_t i = 0; i < kWindowSamples; ++i) {
        block.AudioOut[i] = static_cast<int16_t>(block.AudioIn[i] + 1);
    }
    block.retCode = std::atoi(behaviour.data());
    ReleaseMutex(mutex);
    if (Misbehaves("dies served")) raise(SIGKILL);
    firstRequest = false;
}

}  // namespace

int main() {
    JoinAsServer();
    const char *chosen = std::getenv("AIPLC_FAKE_WORKER");
    behaviour = chosen != nullptr ? chosen : "0";
    size_t size = 0;
    auto *block = static_cast<SharedBlock *>(MapView(OpenMapping(kSharedMemName), &size));
    if (block == nullptr) return 1;
    Handle mutex = CreateNamedMutex(kInferMutexName);
    Handle receiver = CreateNamedEvent(kWorkerReceiverName);
    Handle answer = CreateNamedEvent(kAdapterReceiverName);
    while (Wait(receiver, kPatienceMs) == kWaitSignalled) {
        switch (block->msgId) {
            case AIPLC_PROCESS:
                Serve(*block, mutex);
                break;
            case AIPLC_DELETE:
                if (behaviour != "stubborn") return 0;
                break;
            default:
                if (behaviour != "mute") SetEvent(answer);
        }
    }
}
