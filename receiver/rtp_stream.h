// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_RECEIVER_RTP_STREAM_H
#define AIPLC_RECEIVER_RTP_STREAM_H

#include <cstdint>
#include <optional>

#include "host/rtp_view.h"

namespace aiplc::receiver {

// Tells the packets of one sender from others on the same port. States: no source yet -> following
// one, for good. While following, another source is on probation from its first packet on, and is
// followed with its second packet in a row (RFC 3550 A.1); its first one is lost.
class RtpStream {
  public:
    // payloadType: of the packets to take, -1: any.
    explicit RtpStream(int payloadType, int redPayloadType)
        : m_payloadType(payloadType), m_redPayloadType(redPayloadType) {}

    enum class Verdict {
        follow,   // the stream's own
        changed,  // the same, of a source that is followed from now on
        foreign,  // of another payload type, or of a source on probation
    };
    Verdict Take(const host::RtpView &packet);

  private:
    bool IsWanted(int payloadType) const {
        return m_payloadType < 0 || payloadType == m_payloadType || payloadType == m_redPayloadType;
    }

    int m_payloadType;
    int m_redPayloadType;
    std::optional<uint32_t> m_source;
    std::optional<uint32_t> m_probation;
};

}  // namespace aiplc::receiver

#endif
