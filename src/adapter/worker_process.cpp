// SPDX-License-Identifier: BSD-2-Clause
//
// The worker's life: clear out a left-over one, start, probe, initialise, ask to quit.

#include <aiplc/adapter.h>

#include <algorithm>
#include <codecvt>
#include <iostream>
#include <locale>

#include "src/adapter/shared_block.h"

namespace {

namespace platform = aiplc::platform;
namespace protocol = aiplc::protocol;

constexpr char kSourceUnit[] = "aiplcAdapter";

constexpr int kFailed = -1;
constexpr int kNotRunning = 201;
constexpr int kNoSharedBlock = 202;
constexpr int kNoChannel = 204;

constexpr int kAttempts = 10;
constexpr uint32_t kPauseMs = 100;
constexpr uint32_t kProbeTimeoutMs = 200;
constexpr uint32_t kInitTimeoutMs = 5000;
constexpr size_t kPathCapacity = 1024;

constexpr uint32_t kInitParam0 = 0;
constexpr uint32_t kInitParam1 = 302;

void WriteMessage(const IPC &ipc, protocol::MessageId id) {
    aiplc::StoreField(aiplc::Block(ipc)->msgId, uint32_t{id});
}

bool SignalWorker(const IPC &ipc) {
    return platform::SetEvent(aiplc::EventHandle(ipc, ipc.workerReceiverName));
}

bool WaitForAnswer(const IPC &ipc, uint32_t timeoutMs) {
    return platform::Wait(aiplc::EventHandle(ipc, ipc.adapterReceiverName), timeoutMs) ==
           platform::kWaitSignalled;
}

// No answer is awaited; without a block there is no one to ask.
void AskToQuit(const IPC &ipc) {
    WriteMessage(ipc, protocol::AIPLC_DELETE);
    if (!SignalWorker(ipc)) {
        AudAiplcLog(kSourceUnit, __LINE__, "Send msg to worker process failed (AIPLC_DELETE): %d",
                    aiplc::LastErrorForLog());
    }
}

// Asks a worker that may still be starting up whether it listens.
bool ProbeWorker(const IPC &ipc) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        WriteMessage(ipc, protocol::AIPLC_CHECK_READY);
        if (!SignalWorker(ipc)) {
            AudAiplcLog(kSourceUnit, __LINE__,
                        "Set AIPLC_WORKER_RECEIVER event failed (msgId = AIPLC_CHECK_READY) = %d",
                        aiplc::LastErrorForLog());
            platform::Sleep(kPauseMs);
            continue;
        }
        if (WaitForAnswer(ipc, kProbeTimeoutMs)) {
            AudAiplcLog(kSourceUnit, __LINE__, "Worker process is ready");
            return true;
        }
        AudAiplcLog(kSourceUnit, __LINE__, "Waiting for worker process to be ready: %d",
                    aiplc::LastErrorForLog());
    }
    return false;
}

}  // namespace

AiplcAdapter::AiplcAdapter() {
    ipcReady = m_ipc.Init() == 0;
    if (!ipcReady) {
        AudAiplcLog(kSourceUnit, __LINE__, "IPC init failed!");
    }
}

AiplcAdapter::~AiplcAdapter() = default;

int AiplcAdapter::Create() {
    if (!ipcReady) {
        AudAiplcLog(kSourceUnit, __LINE__, "adapter IPC failed");
        return kNoChannel;
    }
    const std::string name = protocol::kWorkerExecutable;
    TerminatePreviousProcess(name);
    protocol::SharedBlock *block = aiplc::Block(m_ipc);
    if (block == nullptr) {
        AudAiplcLog(kSourceUnit, __LINE__, "IPC shared mem creation failed!");
        return kFailed;
    }
    aiplc::StoreField(block->initParam0, kInitParam0);
    aiplc::StoreField(block->initParam1, kInitParam1);
    if (CreateWorkerProcess(name) != 0) {
        AudAiplcLog(kSourceUnit, __LINE__, "CreateWorkerProcess() failed: ret = %d", kFailed);
        return kFailed;
    }
    AudAiplcLog(kSourceUnit, __LINE__, "AiplcAdapter::Create OK");
    return 0;
}

int AiplcAdapter::TerminatePreviousProcess(const std::string &name) {
    AudAiplcLog(kSourceUnit, __LINE__, "TerminatePreviousProcess: Checking former process...");
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (GetProcessId(name) == 0) {
            AudAiplcLog(kSourceUnit, __LINE__, "Cannot find process %s", name.c_str());
            break;
        }
        if (m_ipc.sharedMem != nullptr) {
            AskToQuit(m_ipc);
        }
        platform::Sleep(kPauseMs);
    }
    workerRunning = false;
    AudAiplcLog(kSourceUnit, __LINE__, "TerminatePreviousProcess OK");
    return 0;
}

uint32_t AiplcAdapter::GetProcessId(const std::string &name) {
    uint32_t id = 0;
    switch (platform::FindProcess(name.c_str(), &id)) {
        case platform::FindStatus::found:
            return id;
        case platform::FindStatus::failed:
            std::cout << "snapShot null" << std::endl;
            return 0;
        case platform::FindStatus::absent:
            break;
    }
    return 0;
}

std::string AiplcAdapter::GetWorkerProcessPath(const std::string &name) {
    char buffer[kPathCapacity] = {};
    const uint32_t length = platform::ExecutablePath(buffer, kPathCapacity);
    // Without it the worker's path would begin at the root, where others may have put something.
    if (length == 0) return {};
    std::string folder(buffer, std::min<size_t>(length, kPathCapacity - 1));
    if (const size_t cut = folder.rfind(platform::kPathSeparator); cut != std::string::npos) {
        folder.resize(cut);
    }
    return folder + platform::kPathSeparator + protocol::kWorkerFolder + platform::kPathSeparator +
           name;
}

int AiplcAdapter::CreateWorkerProcess(const std::string &name) {
    const std::string path = GetWorkerProcessPath(name);
    AudAiplcLog(kSourceUnit, __LINE__, "Creating worker process: %s", path.c_str());
    if (!platform::StartDetachedProcess(path.c_str())) {
        AudAiplcLog(kSourceUnit, __LINE__, "CreateProcess Error: %d", aiplc::LastErrorForLog());
        return kFailed;
    }
    workerRunning = ProbeWorker(m_ipc);
    if (!workerRunning) {
        return 0;  // Init reports it
    }
    const uint32_t id = GetProcessId(name);
    if (id == 0) {
        AudAiplcLog(kSourceUnit, __LINE__,
                    "Worker process creation failed. Process ID = %d, Process name = %s", 0,
                    name.c_str());
        workerRunning = false;
        return kFailed;
    }
    AudAiplcLog(kSourceUnit, __LINE__,
                "Worker process creation succeeded. Process ID = %d, Process name = %s",
                static_cast<int>(id), name.c_str());
    return 0;
}

int AiplcAdapter::Init() {
    AudAiplcLog(kSourceUnit, __LINE__, "AiplcAdapter Init running...");
    if (!workerRunning) {
        AudAiplcLog(kSourceUnit, __LINE__, "Worker process is not running...");
        return kNotRunning;
    }
    if (m_ipc.sharedMem == nullptr) {
        AudAiplcLog(kSourceUnit, __LINE__, "m_ipc.sharedMem is NULL...");
        return kNoSharedBlock;
    }
    WriteMessage(m_ipc, protocol::AIPLC_INIT);
    m_ipc.inferMutex = platform::CreateNamedMutex(protocol::kInferMutexName);
    if (m_ipc.inferMutex == nullptr) {
        AudAiplcLog(kSourceUnit, __LINE__, "Create InferMutex failed: %d",
                    aiplc::LastErrorForLog());
        return kFailed;
    }
    if (!SignalWorker(m_ipc)) {
        AudAiplcLog(kSourceUnit, __LINE__, "Set AIPLC_WORKER_RECEIVER event failed: %d",
                    aiplc::LastErrorForLog());
        return kFailed;
    }
    if (!WaitForAnswer(m_ipc, kInitTimeoutMs)) {
        AudAiplcLog(kSourceUnit, __LINE__, "Wait for AIPLC_ADAPTER_RECEIVER failed. Init failed");
        return kFailed;
    }
    AudAiplcLog(kSourceUnit, __LINE__, "Init Success");
    return 0;
}

int AiplcAdapter::Delete() {
    AudAiplcLog(kSourceUnit, __LINE__, "AIPLC::Delete running...");
    if (!workerRunning) {
        return kNotRunning;
    }
    if (m_ipc.sharedMem != nullptr) {
        AskToQuit(m_ipc);
        workerRunning = false;
    }
    if (m_ipc.inferMutex != nullptr) {
        platform::CloseHandle(m_ipc.inferMutex);
        m_ipc.inferMutex = nullptr;
    }
    AudAiplcLog(kSourceUnit, __LINE__, "AIPLC_ADATER::Delete OK");
    return 0;
}

// The standard's own facet fixes which input is refused. It is deprecated, without a successor.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
using Utf8Converter = std::wstring_convert<std::codecvt_utf8<wchar_t>>;

std::string AiplcAdapter::Wstring2String(const std::wstring &text) {
    return Utf8Converter().to_bytes(text);
}

std::wstring AiplcAdapter::String2Wstring(const std::string &text) {
    return Utf8Converter().from_bytes(text);
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
