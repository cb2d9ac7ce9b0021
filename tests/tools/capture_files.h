// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_TOOLS_CAPTURE_FILES_H
#define AIPLC_TESTS_TOOLS_CAPTURE_FILES_H

#include "tests/tools/test_files.h"

namespace aiplc::tools {

// RFC 3550, section 5.1.
Bytes Rtp(uint32_t ssrc, uint8_t type, uint16_t sequence, uint32_t time, const Bytes &payload);

// Each puts its headers in front.
Bytes Udp(const Bytes &payload);
Bytes Ipv4(const Bytes &payload, uint16_t fragment = 0, uint8_t protocol = 17);
// With a hop-by-hop header of 8 bytes in front of UDP.
Bytes Ipv6(const Bytes &payload);
Bytes Ethernet(const Bytes &typeAndPacket);

// The classic capture format, microseconds, Intel byte order: its header, and a frame of Ethernet
// and IPv4 of which the last bytes may be missing.
Bytes CaptureHeader(uint32_t linkType = 1);
Bytes Frame(uint64_t timeUs, const Bytes &rtp, size_t missing = 0);

}  // namespace aiplc::tools

#endif
