// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_SESSION_DESCRIPTION_H
#define AIPLC_TOOLS_SESSION_DESCRIPTION_H

#include <cstdint>
#include <optional>
#include <string>

namespace aiplc::tools {

// An Opus stream as a session description (SDP, RFC 8866) announces it, with RFC 7587's names.
struct SessionDescription {
    std::string host;  // where it is sent to
    uint16_t port = 0;
    int payloadType = 0;
    std::optional<int> redPayloadType;  // of redundant audio (RFC 2198)
    std::optional<uint16_t> rtcpPort;   // a=rtcp (RFC 3605); otherwise the next port
    bool rtcpMux = false;               // RTCP on the same port (RFC 5761)
};

// The first Opus stream of the text. Throws Failure naming file and what is missing.
SessionDescription ParseSessionDescription(const std::string &text, const std::string &file);

// The text for this stream. isVersion6: of the host, which is an address.
std::string SessionDescriptionText(const SessionDescription &session, bool isVersion6);

}  // namespace aiplc::tools

#endif
