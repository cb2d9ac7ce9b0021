// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/gzip.h"

#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <new>

#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"

namespace aiplc::tools {
namespace {

constexpr int kGzipWindow = 15 + 16;  // the largest, and the header of gzip

class Inflater {
  public:
    Inflater() {
        if (inflateInit2(&m_stream, kGzipWindow) != Z_OK) throw std::bad_alloc();
    }
    ~Inflater() { inflateEnd(&m_stream); }
    Inflater(const Inflater &) = delete;
    Inflater &operator=(const Inflater &) = delete;

    z_stream *operator->() { return &m_stream; }
    // True at the end of a member. Throws Failure.
    bool Step(const std::string &file) {
        const int result = inflate(&m_stream, Z_NO_FLUSH);
        if (result == Z_MEM_ERROR) throw std::bad_alloc();
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
            throw Failure(file, "the gzip file is damaged; give an intact one");
        return result == Z_STREAM_END;
    }
    void NextMember() { inflateReset(&m_stream); }

  private:
    z_stream m_stream{};
};

}  // namespace

Unpacked Unpack(int from, std::FILE *to, uint64_t maxBytes, const std::string &file) {
    Inflater inflater;
    std::array<uint8_t, 65536> in{};
    std::array<uint8_t, 65536> out{};
    Unpacked unpacked;
    bool memberEnded = false;
    off_t at = 0;
    for (;;) {
        ThrowIfInterrupted();
        if (inflater->avail_in == 0) {
            const ssize_t got = pread(from, in.data(), in.size(), at);
            if (got < 0) throw Failure(file, std::string("cannot be read: ") + strerror(errno));
            if (got == 0) break;
            at += got;
            inflater->next_in = in.data();
            inflater->avail_in = static_cast<uInt>(got);
        }
        if (memberEnded) {
            if (*inflater->next_in != 0x1F) return unpacked;  // padding behind the last member
            inflater.NextMember();
        }
        inflater->next_out = out.data();
        inflater->avail_out = static_cast<uInt>(out.size());
        memberEnded = inflater.Step(file);
        const size_t done = out.size() - inflater->avail_out;
        unpacked.bytes += done;
        if (unpacked.bytes > maxBytes)
            throw Failure(file, "unpacks to more than 4 GiB; give a shorter call");
        if (std::fwrite(out.data(), 1, done, to) != done) {
            throw Failure(file, std::string("the unpacked copy failed: ") + strerror(errno) +
                                    "; set TMPDIR to a folder with more room");
        }
    }
    unpacked.stopsEarly = !memberEnded;
    return unpacked;
}

}  // namespace aiplc::tools
