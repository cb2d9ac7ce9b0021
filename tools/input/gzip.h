// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_GZIP_H
#define AIPLC_TOOLS_GZIP_H

#include <cstdint>
#include <cstdio>
#include <string>

namespace aiplc::tools {

struct Unpacked {
    uint64_t bytes = 0;
    bool stopsEarly = false;  // the compressed file ends before its content does
};

// Unpacks a gzip file (RFC 1952) of one or more members into a file. from: read from its start, by
// position; it stays the caller's. Throws Failure naming file when it is damaged or holds more than
// maxBytes, Interrupted.
Unpacked Unpack(int from, std::FILE *to, uint64_t maxBytes, const std::string &file);

}  // namespace aiplc::tools

#endif
