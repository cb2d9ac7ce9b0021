// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CALL_STATUS_H
#define AIPLC_TOOLS_CALL_STATUS_H

#include <aiplc/receiver.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace aiplc::tools {

// How a running call goes.
struct CallStatus {
    double seconds = 0;  // of audio
    uint32_t ssrc = 0;
    int payloadType = -1;
    std::string from;  // the sender's address; empty before the first packet
    bool senderLeft = false;
    uint64_t receiverReports = 0;
    uint64_t interruptions = 0;
    bool predictorRunning = false;
    AiPlcReceiverStatistics statistics{};
};

// "0:12  480 packets, 5.0 % lost, ..."; fits a terminal of 100 columns.
std::string StatusLine(const CallStatus &status);
// One object, without a line feed. event: "statistics" or "end".
std::string StatusJson(const CallStatus &status, const char *event);

// One line on standard error that is overwritten, where that is a terminal.
class TerminalLine {
  public:
    explicit TerminalLine(bool wanted);
    ~TerminalLine() { Clear(); }
    TerminalLine(const TerminalLine &) = delete;
    TerminalLine &operator=(const TerminalLine &) = delete;

    void Show(const std::string &text);
    void Clear();

  private:
    bool m_visible;
    bool m_drawn = false;
};

// Lines that a reader sees as soon as they are written.
class LineFile {
  public:
    // path: "-" = standard output; empty: nowhere. Throws Failure.
    explicit LineFile(const std::string &path);
    // Throws Failure, or ReaderGone.
    void Write(const std::string &line);

  private:
    struct Close {
        void operator()(std::FILE *file) const {
            if (file != stdout) (void)std::fclose(file);
        }
    };
    std::string m_name;
    std::unique_ptr<std::FILE, Close> m_file;
};

}  // namespace aiplc::tools

#endif
