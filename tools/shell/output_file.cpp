// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"

namespace aiplc::tools {
namespace {

bool SameFile(const struct stat &target, int input) {
    struct stat source {};
    return fstat(input, &source) == 0 && source.st_dev == target.st_dev &&
           source.st_ino == target.st_ino;
}

// The rights a new file gets from the shell's umask; mkstemp gives fewer.
mode_t NewFileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// False, with errno set, when the bytes do not fit. Throws Interrupted.
bool WriteAll(int descriptor, const char *bytes, size_t count) {
    while (count > 0) {
        const ssize_t done = write(descriptor, bytes, count);
        if (done < 0 && errno == EINTR) {
            ThrowIfInterrupted();
            continue;
        }
        if (done < 0) return false;
        bytes += done;
        count -= static_cast<size_t>(done);
    }
    return true;
}

}  // namespace

OutputFile::OutputFile(const std::string &target, int input)
    : m_name(target == "-" ? "standard output" : target), m_target(target) {
    struct stat status {};
    m_standardOutput = target == "-";
    bool nameless = m_standardOutput;
    if (!m_standardOutput && stat(target.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) throw Failure(m_name, "is a folder; give a file name");
        nameless = !S_ISREG(status.st_mode);
        if (!nameless && input != kNoInput && SameFile(status, input)) {
            throw Failure(m_name, "is the input itself; give another output file");
        }
        std::error_code error;
        const std::filesystem::path resolved = std::filesystem::canonical(target, error);
        if (!error) m_target = resolved.string();
    }
    if (nameless) {
        const char *folder = std::getenv("TMPDIR");
        m_temporary = std::string(folder != nullptr ? folder : "/tmp") + "/aiplc-XXXXXX";
    } else {
        const std::filesystem::path path(m_target);
        m_temporary = (path.parent_path() /
                       std::string(".").append(path.filename().string()).append(".XXXXXX"))
                          .string();
    }
    m_descriptor = mkostemp(m_temporary.data(), O_CLOEXEC);
    if (m_descriptor < 0) {
        m_temporary.clear();
        Fail("cannot be written");
    }
    if (nameless) {
        unlink(m_temporary.c_str());
        m_temporary.clear();
    } else {
        fchmod(m_descriptor, status.st_mode != 0 ? status.st_mode & 0777 : NewFileMode());
    }
}

OutputFile::~OutputFile() {
    if (m_descriptor >= 0) close(m_descriptor);
    if (!m_temporary.empty()) unlink(m_temporary.c_str());
}

void OutputFile::Fail(const char *what) const {
    if (errno == EPIPE) throw ReaderGone();
    throw Failure(m_name, std::string(what) + ": " + strerror(errno) +
                              "; give a place that can be written to and has room");
}

void OutputFile::Write(const std::string &text) {
    if (!WriteAll(m_descriptor, text.data(), text.size())) Fail("cannot be written");
}

void OutputFile::CopyTo(int descriptor) {
    std::array<char, 65536> block{};
    off_t at = 0;
    for (;;) {
        const ssize_t got = pread(m_descriptor, block.data(), block.size(), at);
        if (got < 0) Fail("the temporary copy cannot be read");
        if (got == 0) return;
        if (!WriteAll(descriptor, block.data(), static_cast<size_t>(got)))
            Fail("cannot be written");
        at += got;
    }
}

void OutputFile::Commit() {
    if (m_standardOutput) {
        CopyTo(STDOUT_FILENO);
        return;
    }
    if (m_temporary.empty()) {
        const int device = open(m_target.c_str(), O_WRONLY | O_CLOEXEC);
        if (device < 0) Fail("cannot be written");
        try {
            CopyTo(device);
        } catch (...) {
            close(device);
            throw;
        }
        if (close(device) != 0) Fail("cannot be written");
        return;
    }
    if (rename(m_temporary.c_str(), m_target.c_str()) != 0) Fail("cannot be written");
    m_temporary.clear();
}

}  // namespace aiplc::tools
