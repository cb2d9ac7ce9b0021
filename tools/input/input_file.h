// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_INPUT_FILE_H
#define AIPLC_TOOLS_INPUT_FILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

namespace aiplc::tools {

// The kind of a file, recognised by its content.
enum class InputKind {
    speechAudio,  // anything libsndfile reads
    oggOpus,      // RFC 7845
    bitStream,    // what opus_demo writes
    capture,      // pcap, pcapng or rtpdump
    unknown,
};

// The input, open for reading at any position. Standard input and other pipes are first copied to a
// nameless temporary file of at most 4 GiB; a gzip file is unpacked into one, whatever it holds.
class InputFile {
  public:
    // name: a path, or "-" for standard input. Throws Failure, or Interrupted while copying.
    static InputFile Open(const std::string &name);

    // Its name in messages.
    [[nodiscard]] const std::string &Name() const { return m_name; }
    [[nodiscard]] uint64_t Size() const { return m_size; }
    [[nodiscard]] InputKind Kind() const;
    // It was compressed and that file ends early.
    [[nodiscard]] bool StopsEarly() const { return m_stopsEarly; }
    // The first bytes, as many as there are and block takes.
    [[nodiscard]] std::span<const uint8_t> Head(std::span<uint8_t> block) const;

    void Rewind();
    // Reads until the buffer is full or the file ends; returns the bytes read. Throws Failure.
    size_t Read(std::span<uint8_t> buffer);

    // The descriptor, still this object's.
    [[nodiscard]] int Descriptor() const { return fileno(m_file.get()); }
    // A second handle of the same file, at its start; the caller closes it.
    [[nodiscard]] std::FILE *Duplicate() const;

  private:
    struct Close {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };

    void UnpackIfCompressed();

    std::unique_ptr<std::FILE, Close> m_file;
    std::string m_name;
    uint64_t m_size = 0;
    bool m_stopsEarly = false;
};

}  // namespace aiplc::tools

#endif
