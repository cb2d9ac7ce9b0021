// SPDX-License-Identifier: BSD-2-Clause

#include "receiver/rtp_stream.h"

namespace aiplc::receiver {

RtpStream::Verdict RtpStream::Take(const host::RtpView &packet) {
    if (!IsWanted(packet.payloadType)) return Verdict::foreign;
    if (!m_source) m_source = packet.ssrc;
    if (packet.ssrc == *m_source) {
        m_probation.reset();
        return Verdict::follow;
    }
    if (m_probation != packet.ssrc) {
        m_probation = packet.ssrc;
        return Verdict::foreign;
    }
    m_probation.reset();
    m_source = packet.ssrc;
    return Verdict::changed;
}

}  // namespace aiplc::receiver
