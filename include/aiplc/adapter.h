// SPDX-License-Identifier: BSD-2-Clause

/// @file
/// The library's way to the worker process xanu_audio_aiplc.exe. A host that predicts by other
/// means derives from AiplcAdapterInterface and puts its object into StAiPlcChannel::adapter.

#ifndef AIPLC_ADAPTER_H
#define AIPLC_ADAPTER_H

#include <aiplc/aiplc.h>

#include <cstdint>
#include <string>
#include <unordered_map>

/// One request: eight frames of 20 ms at 16 kHz (320 samples of 16 bits each, oldest first), in and
/// out. A missing frame is all zero.
struct InoutDetail {
    uint8_t AudioIn[sizeof(int16_t) * AIPLC_WINDOW_SAMPLES];   ///< the window
    uint8_t AudioOut[sizeof(int16_t) * AIPLC_WINDOW_SAMPLES];  ///< the window with the gaps filled
    uint16_t inferArg;                                         ///< always 1
};

/// The calls that the library makes of a predictor: Create, Init, Process any number of times,
/// Delete. They come from one thread and never overlap. An exception counts as a failure.
class AIPLC_EXPORT AiplcAdapterInterface {
  public:
    virtual ~AiplcAdapterInterface();

    /// Starts the worker.
    ///
    /// @return 0; -1: it could not be started; 204: shared block or events could not be set up
    virtual int Create() = 0;
    /// Makes the worker ready.
    ///
    /// @return 0; -1: no answer; 201: no worker runs; 202: there is no shared block
    virtual int Init() = 0;
    /// Tells the worker to quit, without waiting.
    ///
    /// @return 0; 201: no worker runs
    virtual int Delete() = 0;
    /// Makes one request. Blocks for at most 10 ms until the request is acknowledged and timeoutMs
    /// more until the result is there.
    ///
    /// @param record window in, prediction out
    /// @param timeoutMs milliseconds
    /// @return 0: AudioOut is to be used; 201, 202, 310 (an earlier request has not finished):
    /// nothing
    ///         was sent; -1: failed or late, AudioOut is untouched; any other value is the worker's
    ///         own
    virtual int Process(InoutDetail &record, int timeoutMs) = 0;
};

/// Owns view and mapping of the shared block and the four events.
class AIPLC_EXPORT IPC {
  public:
    IPC();
    ~IPC();
    IPC(const IPC &) = delete;
    IPC &operator=(const IPC &) = delete;

    /// Opens or creates the block and the events.
    ///
    /// @return 0, or -1; whatever was made by then is kept for the destructor
    int Init();
    /// Waits for an event or a mutex.
    ///
    /// @param handle from eventHandles, or a mutex
    /// @param timeoutMs milliseconds at most
    /// @return 0 signalled, 101 time-out, 104 the wait failed, 105 abandoned mutex, -1 invalid
    /// handle
    ///         or any other outcome
    int ReceiveEvent(void *handle, int timeoutMs);

    std::unordered_map<std::string, void *> eventHandles;  ///< name of an event to its handle
    void *sharedMem = nullptr;        ///< view of the block, 10776 bytes or more
    void *sharedMemHandle = nullptr;  ///< mapping of the block
    void *inferMutex = nullptr;       ///< taken for each request; made and closed by AiplcAdapter
    bool initialized = false;         ///< Init has succeeded
    std::string workerReceiverName;   ///< event: a message for the worker
    std::string adapterReceiverName;  ///< event: the worker's answer to a message
    std::string processStartedName;   ///< event: the worker has taken up a request
    std::string inputReadyName;       ///< event: a request's input is in the block
};

/// The library's own adapter: a worker process reached over named objects.
///
/// Its states follow each other: constructed, Create (workerRunning), Init, requests, Delete. A
/// worker that has ended is not started again; requests then cost 10 ms each and fail.
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

    /// Second half of Process, on the thread that holds the mutex.
    ///
    /// @return 0; 101: late; -1: failed
    int AsyncInfer(InoutDetail &record, int timeoutMs);
    /// Asks a left-over worker to quit, for at most about 1 s.
    ///
    /// @return 0
    int TerminatePreviousProcess(const std::string &name);
    /// Starts the worker and asks it whether it is there, for at most about 2 s.
    ///
    /// @return 0 or -1
    int CreateWorkerProcess(const std::string &name);
    /// @return the id of the first process with this executable name, 0 when there is none
    uint32_t GetProcessId(const std::string &name);
    /// @return the path x64/name below the folder of the running executable
    std::string GetWorkerProcessPath(const std::string &name);
    /// Converts to UTF-8. Throws std::range_error for input that cannot be converted.
    std::string Wstring2String(const std::wstring &text);
    /// Converts from UTF-8. Throws std::range_error for input that cannot be converted.
    std::wstring String2Wstring(const std::string &text);

    bool workerRunning = false;  ///< the worker has answered
    bool ipcReady = false;       ///< IPC::Init has succeeded
    IPC m_ipc;                   ///< the objects shared with the worker
};

#endif
