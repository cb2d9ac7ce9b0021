// SPDX-License-Identifier: BSD-2-Clause

#include "tools/input/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "tools/input/bit_stream.h"
#include "tools/input/gzip.h"
#include "tools/input/rtpdump.h"
#include "tools/input/sound_file.h"
#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/nameless_file.h"

namespace aiplc::tools {
namespace {

constexpr uint64_t kMaxSpooledBytes = uint64_t{4} << 30;

// Copies a pipe; returns the bytes copied.
uint64_t Spool(int from, std::FILE *to, const std::string &name) {
    std::array<uint8_t, 65536> block{};
    uint64_t total = 0;
    for (;;) {
        ThrowIfInterrupted();
        const ssize_t got = read(from, block.data(), block.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw Failure(name, std::string("cannot be read: ") + strerror(errno));
        if (got == 0) break;
        total += static_cast<uint64_t>(got);
        if (total > kMaxSpooledBytes) throw Failure(name, "more than 4 GiB; give a file instead");
        if (std::fwrite(block.data(), 1, static_cast<size_t>(got), to) !=
            static_cast<size_t>(got)) {
            throw Failure(name, std::string("the temporary copy failed: ") + strerror(errno) +
                                    "; set TMPDIR to a folder with more room");
        }
    }
    if (std::fflush(to) != 0) {
        throw Failure(name, std::string("the temporary copy failed: ") + strerror(errno));
    }
    return total;
}

bool StartsWith(std::span<const uint8_t> bytes, const char *magic, size_t length) {
    return bytes.size() >= length && std::memcmp(bytes.data(), magic, length) == 0;
}

bool IsCapture(std::span<const uint8_t> head) {
    static constexpr std::array<const char *, 5> kMagics = {
        "\xA1\xB2\xC3\xD4", "\xD4\xC3\xB2\xA1",  // microseconds, either byte order
        "\xA1\xB2\x3C\x4D", "\x4D\x3C\xB2\xA1",  // nanoseconds
        "\x0A\x0D\x0D\x0A"};                     // pcapng section header
    return std::any_of(kMagics.begin(), kMagics.end(),
                       [&](const char *magic) { return StartsWith(head, magic, 4); });
}

// The first packet of the first page, behind the 27 bytes of page header and the segment table.
bool IsOggOpus(std::span<const uint8_t> head) {
    if (!StartsWith(head, "OggS", 4) || head.size() < 27) return false;
    const size_t payload = 27 + size_t{head[26]};
    return payload <= head.size() && StartsWith(head.subspan(payload), "OpusHead", 8);
}

}  // namespace

InputFile InputFile::Open(const std::string &name) {
    InputFile input;
    const bool standardInput = name == "-";
    input.m_name = standardInput ? "standard input" : name;
    const int descriptor = standardInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                         : open(name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        const int error = errno;
        if (descriptor >= 0) close(descriptor);
        throw Failure(input.m_name, std::string("cannot be opened: ") + strerror(error) +
                                        "; give a readable file");
    }
    input.m_file.reset(fdopen(descriptor, "rb"));
    if (S_ISDIR(status.st_mode)) {
        throw Failure(input.m_name, "is a folder; give an audio, Opus or capture file");
    }
    if (S_ISREG(status.st_mode) && !standardInput) {
        input.m_size = static_cast<uint64_t>(status.st_size);
    } else {
        std::unique_ptr<std::FILE, Close> copy(fdopen(OpenNamelessFile(), "w+b"));
        input.m_size = Spool(descriptor, copy.get(), input.m_name);
        input.m_file = std::move(copy);
    }
    input.UnpackIfCompressed();
    if (input.m_size == 0) {
        throw Failure(input.m_name, "is empty; give an audio, Opus or capture file");
    }
    return input;
}

void InputFile::UnpackIfCompressed() {
    std::array<uint8_t, 2> block{};
    if (!StartsWith(Head(block), "\x1F\x8B", 2)) return;
    std::unique_ptr<std::FILE, Close> copy(fdopen(OpenNamelessFile(), "w+b"));
    const Unpacked unpacked = Unpack(Descriptor(), copy.get(), kMaxSpooledBytes, m_name);
    if (std::fflush(copy.get()) != 0)
        throw Failure(m_name, std::string("the unpacked copy failed: ") + strerror(errno));
    m_file = std::move(copy);
    m_size = unpacked.bytes;
    m_stopsEarly = unpacked.stopsEarly;
}

std::span<const uint8_t> InputFile::Head(std::span<uint8_t> block) const {
    const ssize_t got = pread(Descriptor(), block.data(), block.size(), 0);
    return block.first(got > 0 ? static_cast<size_t>(got) : 0);
}

InputKind InputFile::Kind() const {
    std::array<uint8_t, 1024> block{};
    const std::span<const uint8_t> head = Head(block);
    if (IsCapture(head) || IsRtpDump(head)) return InputKind::capture;
    if (IsOggOpus(head)) return InputKind::oggOpus;
    if (SoundFile(*this).IsOpen()) return InputKind::speechAudio;
    return LooksLikeBitStream(head, m_size) ? InputKind::bitStream : InputKind::unknown;
}

void InputFile::Rewind() {
    std::rewind(m_file.get());
}

size_t InputFile::Read(std::span<uint8_t> buffer) {
    const size_t got = std::fread(buffer.data(), 1, buffer.size(), m_file.get());
    if (got < buffer.size() && std::ferror(m_file.get()) != 0) {
        throw Failure(m_name, std::string("cannot be read: ") + strerror(errno));
    }
    return got;
}

std::FILE *InputFile::Duplicate() const {
    const int descriptor = fcntl(Descriptor(), F_DUPFD_CLOEXEC, 3);
    if (descriptor < 0 || lseek(descriptor, 0, SEEK_SET) < 0) {
        if (descriptor >= 0) close(descriptor);
        throw Failure(m_name, std::string("cannot be read: ") + strerror(errno));
    }
    return fdopen(descriptor, "rb");
}

}  // namespace aiplc::tools
