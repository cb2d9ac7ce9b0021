// SPDX-License-Identifier: BSD-2-Clause
//
// The worker adapter: how the library reaches the worker process xanu_audio_aiplc.exe.

#ifndef AIPLC_ADAPTER_H
#define AIPLC_ADAPTER_H

#include <aiplc/aiplc.h>

#include <cstdint>
#include <string>
#include <unordered_map>

// One request: eight 20 ms frames of 16 kHz audio (320 samples each, oldest first) in and out.
struct InoutDetail {
    uint8_t AudioIn[sizeof(int16_t) * AIPLC_WINDOW_SAMPLES];
    uint8_t AudioOut[sizeof(int16_t) * AIPLC_WINDOW_SAMPLES];
    uint16_t inferArg;
};

// What the inference control needs of a worker. One thread, calls never overlap:
// construct, Create, Init, Process any number of times, Delete, destroy.
class AIPLC_EXPORT AiplcAdapterInterface {
  public:
    virtual ~AiplcAdapterInterface();

    // Starts the worker. 0; -1 failed to start; 204 shared block or events not set up.
    virtual int Create() = 0;
    // Initialisation hand-shake. 0; -1; 201 worker not running; 202 shared block missing.
    virtual int Init() = 0;
    // Tells the worker to quit, without waiting. 0; 201 worker not running.
    virtual int Delete() = 0;
    // One request. Blocks at most 10 ms for the acknowledgement plus timeoutMs for the result.
    // 201, 202, 310 (previous inference unfinished): nothing was sent. -1: failed or late, AudioOut
    // untouched. Any other value is the worker's own result; 0: AudioOut is to be used.
    virtual int Process(InoutDetail &record, int timeoutMs) = 0;
};

// Owns the shared block's view and mapping and the four events. Never copied.
class AIPLC_EXPORT IPC {
  public:
    IPC();
    ~IPC();
    IPC(const IPC &) = delete;
    IPC &operator=(const IPC &) = delete;

    // Opens or creates the block and the events. 0, or -1 (what was made is kept for the
    // destructor).
    int Init();
    // Waits for handle at most timeoutMs. 0 signalled, 101 time-out, 104 wait failed, 105 abandoned
    // mutex, -1 invalid handle or any other outcome.
    int ReceiveEvent(void *handle, int timeoutMs);

    std::unordered_map<std::string, void *> eventHandles;  // event name to handle
    void *sharedMem = nullptr;                             // view of the block, 10776 bytes or more
    void *sharedMemHandle = nullptr;
    void *inferMutex = nullptr;  // made and closed by AiplcAdapter
    bool initialized = false;
    std::string workerReceiverName;
    std::string adapterReceiverName;
    std::string processStartedName;
    std::string inputReadyName;
};

// The one implementation: a worker process reached over named objects.
//
// State: constructed -> Create -> workerRunning -> Init -> requests -> Delete. Nothing restarts a
// worker that has ended; its requests cost 10 ms each and fail.
class AIPLC_EXPORT AiplcAdapter : public AiplcAdapterInterface {
  public:
    AiplcAdapter();
    ~AiplcAdapter() override;
    AiplcAdapter(const AiplcAdapter &) = delete;
    AiplcAdapter &operator=(const AiplcAdapter &) = delete;

    int Create() override;
    int Init() override;
    int Delete() override;
    int Process(InoutDetail &record, int timeoutMs) override;

    // Second half of Process, on the thread that holds the mutex. 0; 101 late; -1.
    int AsyncInfer(InoutDetail &record, int timeoutMs);
    // Asks a left-over worker to quit, for at most about 1 s. Always 0.
    int TerminatePreviousProcess(const std::string &name);
    // Starts the worker and probes it for at most about 2 s. 0 or -1.
    int CreateWorkerProcess(const std::string &name);
    // Id of the first process with this executable name, 0 when there is none.
    uint32_t GetProcessId(const std::string &name);
    // Path below the folder of the running executable: x64/name.
    std::string GetWorkerProcessPath(const std::string &name);
    // UTF-8 conversions; throw std::range_error on input that cannot be converted.
    std::string Wstring2String(const std::wstring &text);
    std::wstring String2Wstring(const std::string &text);

    bool workerRunning = false;  // the worker answered the readiness probe
    bool ipcReady = false;       // IPC::Init succeeded
    IPC m_ipc;
};

#endif
