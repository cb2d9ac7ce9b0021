// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_RTCP_H
#define AIPLC_TOOLS_RTCP_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace aiplc::tools {

// A report block (RFC 3550 6.4.1): how one source's packets arrive.
struct ReceptionReport {
    uint32_t ssrc = 0;
    uint8_t fractionLost = 0;        // of 256, since the report before
    int32_t lost = 0;                // since the beginning
    uint32_t highestSequence = 0;    // with the cycles in the upper half
    uint32_t jitter = 0;             // 48 kHz samples
    uint32_t lastSenderReport = 0;   // middle of its NTP time; 0 before the first
    uint32_t sinceSenderReport = 0;  // 1/65536 s
};

// A sender's account of its stream (RFC 3550 6.4.1).
struct SenderInformation {
    uint64_t ntp = 0;  // seconds since 1900 and fraction
    uint32_t timestamp = 0;
    uint32_t packets = 0;
    uint32_t bytes = 0;
};

// One compound packet: a report, the sender's name and, at the end of a call, its farewell.
struct RtcpReport {
    uint32_t ssrc = 0;
    std::optional<SenderInformation> sender;
    std::vector<ReceptionReport> blocks;  // up to 31
    bool bye = false;
};

std::vector<uint8_t> RtcpBytes(const RtcpReport &report, const std::string &name);

// Reads any bytes; nothing when they are no RTCP. Parts of other kinds are passed over.
std::optional<RtcpReport> ParseRtcp(std::span<const uint8_t> datagram);

// RTP and RTCP on one port are told apart by the second byte (RFC 5761, section 4).
bool IsRtcp(std::span<const uint8_t> datagram);

// NTP time of the wall clock.
uint64_t NtpNow();

}  // namespace aiplc::tools

#endif
